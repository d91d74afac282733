#!/usr/bin/env bash
# Load on the built module, through both interfaces, while the token and the log are disturbed.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

usage() {
    say "Usage: ./soak.sh [MINUTES] [--seed N]"
    say "Three processes use the release build over a software token for MINUTES (default 1), and up to a minute more, while the"
    say "token is pulled, locked, expired and given another PIN. Every answer is judged, every signature verified."
    say "Exit status: 0 everything held, 1 something is wrong (a line for each kind says what), 2 wrong usage."
    say "--seed N    the same draws as the run that printed N"
}

minutes=1
seed=$((EPOCHSECONDS % 1000000))
while [[ $# -gt 0 ]]; do
    case $1 in
    -h | --help) usage && exit 0 ;;
    --seed)
        [[ ${2-} =~ ^[0-9]+$ ]] || { usage >&2 && exit 2; }
        seed=$2
        shift
        ;;
    *)
        [[ $1 =~ ^[0-9]+(\.[0-9]+)?$ ]] || { usage >&2 && exit 2; }
        minutes=$1
        ;;
    esac
    shift
done

soak=$build/soak

token() {
    quietly quelta-token.log wine "$(program quelta-token)" "$@" || die "quelta-token $1 failed: see build/logs/quelta-token.log"
}

make_token() {
    rm -rf "$soak"
    mkdir -p "$soak"
    QUELTA_TOKEN_DIR=$(windows_path "$soak/token")
    export QUELTA_TOKEN_DIR
    token init --pin 24680
    token keygen --type rsa2048 --usage both --label rsa
    token cert rsa --subject "CN=Soak"
    # First among the keys that unwrap.
    token import --aes 000102030405060708090A0B0C0D0E0F --label wrapping
}

# The log level of the whole prefix is changed meanwhile.
level=('HKLM\Software\Oskvar\Quelta' /v logLevel)
remember_level() {
    level_before=$(wine reg query "${level[@]}" 2>/dev/null </dev/null 9>&- | grep -oE '0x[0-9a-f]+' || true)
    trap 'status=$?; set +e; put_level_back; (exit "$status"); clean_up' EXIT
}
# With a new server: an interruption ends the old one, and the soak may still be at work.
put_level_back() {
    stop_wineserver
    start_wineserver
    quietly log-level.log wine reg delete "${level[@]}" /f 2>/dev/null
    [[ -z $level_before ]] || quietly log-level.log wine reg add "${level[@]}" /t REG_DWORD /d "$level_before" /f
}

take_turn exclusive
need_packages "${build_packages[@]}"
start_display
prepare_prefix
build_preset mingw-release QueltaCSP QueltaDSCLibrary quelta-token quelta-soak
use_build mingw-release
register_provider "$bin"
make_token
remember_level
wine "$(program quelta-soak)" "$(windows_path "$soak")" "$minutes" "$seed" </dev/null 9>&-
