#!/usr/bin/env bash
# Measures the release build. This is not a test. docs/measurements.md explains the figures.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

# SECTION:FOLDER. The folder holds the device library that the section uses.
sections=(overhead:instant growth:instant chains:instant ratio:softtoken)

usage() {
    say "Usage: ./bench.sh [--json] [SECTION]..."
    say "Builds the release and measures it under Wine. All sections take some minutes. --json prints each section as one line."
    say "Sections: ${sections[*]%%:*}"
    say "Example: ./bench.sh overhead ratio"
}

json=()
wanted=()
for argument in "$@"; do
    case $argument in
    --help | -h)
        usage
        exit 0
        ;;
    --json) json=(--json) ;;
    *)
        [[ " ${sections[*]} " == *" $argument:"* ]] || {
            usage >&2
            exit 2
        }
        wanted+=("$argument")
        ;;
    esac
done

pin=24680
token=$build/bench/token

make_token() {
    rm -rf "$build/bench"
    mkdir -p "$build/bench"
    QUELTA_TOKEN_DIR=$(windows_path "$token")
    export QUELTA_TOKEN_DIR
    local command
    for command in "init --pin $pin" "keygen --type rsa2048 --label bench --usage both" "cert bench"; do
        # shellcheck disable=SC2086
        quietly quelta-token.log wine "$(program quelta-token)" $command || die "quelta-token $command failed"
    done
}

# Puts this script and Wine's server on one core. On two cores each waits for the other to wake up, longer than the measured call.
share_one_core() {
    local cores process
    cores=$(taskset -cp $$ | sed 's/.*: //')
    for process in "$server_pid" $$; do
        taskset -acp "${cores%%[-,]*}" "$process" >/dev/null
    done
}

measure() {
    local name=$1 folder=$2
    WINEPATH=$(windows_path "$build/mingw-release/$folder") \
        quietly "bench-$name.log" wine "$bin/quelta-bench.exe" "$name" --pin "$pin" "${json[@]}" ||
        die "$name could not be measured: see build/logs/bench-$name.log"
    tr -d '\r' <"$logs/bench-$name.log"
}

lock_checkout exclusive
need_packages "${build_packages[@]}"
start_display
prepare_prefix
build_preset mingw-release all quelta-bench >&2
use_build mingw-release
make_token
share_one_core
for section in "${sections[@]}"; do
    name=${section%%:*}
    [[ ${#wanted[@]} -gt 0 && " ${wanted[*]} " != *" $name "* ]] || measure "$name" "${section#*:}"
done
