#!/usr/bin/env bash
# Puts load on the built module through both interfaces, while the token is disturbed.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

usage() {
    say "Usage: ./soak.sh [MINUTES] [--seed N]"
    say "Three processes use the release build with a software token for MINUTES (default 1) and up to a minute longer. Meanwhile"
    say "the token is removed, locked, expired and given another PIN. Every answer is checked, every signature verified."
    say "Exit status: 0 no errors, 1 errors (one line for each kind), 2 wrong usage."
    say "--seed N    repeats the random choices of the run that printed N"
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
    # This key is imported first, so that it is the first one tried for unwrapping.
    token import --aes 000102030405060708090A0B0C0D0E0F --label wrapping
}

lock_checkout exclusive
need_packages "${build_packages[@]}"
start_display
prepare_prefix
build_preset mingw-release QueltaCSP QueltaDSCLibrary quelta-token quelta-soak
use_build mingw-release
register_provider "$bin"
make_token
wine "$(program quelta-soak)" "$(windows_path "$soak")" "$minutes" "$seed" </dev/null 9>&-
