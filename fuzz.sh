#!/usr/bin/env bash
# Fuzzes every target for the given time, one target for each processor at a time: ./fuzz.sh 600
# New inputs stay in build/fuzz for the next run. A log names an input that fails.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

if [[ $# -ne 1 || ! $1 =~ ^[1-9][0-9]*$ ]]; then
    say "Usage: ./fuzz.sh SECONDS"
    say "Fuzzes every target for SECONDS. New inputs stay in build/fuzz; an input that fails is named in a log."
    [[ ${1-} == --help || ${1-} == -h ]] && exit 0 || exit 2
fi
seconds=$1

lock_checkout exclusive
need_packages "${build_packages[@]}" "${test_packages[@]}"
build_preset native-fuzz

# The fuzzer writes new inputs to the first folder; the second folder has the seeds.
fuzz() {
    local name=$1 folder=$build/fuzz/$1
    mkdir -p "$folder"
    "$build/native-fuzz/bin/fuzz_$name" -max_total_time="$seconds" -max_len=1200 -verbosity=0 -print_final_stats=1 \
        -artifact_prefix="$folder-" "$folder" "$root/tests/fuzz/corpus/$name" >"$logs/fuzz-$name.log" 2>&1 </dev/null || {
        say "$name: failed; the input and what happened are named in build/logs/fuzz-$name.log" >&2
        return 1
    }
    say "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$logs/fuzz-$name.log") inputs, nothing found"
}
export -f fuzz say
export build root logs seconds
find "$root/tests/fuzz/corpus" -mindepth 1 -maxdepth 1 -printf '%f\0' | sort -z |
    xargs -0 -P "$(nproc)" -I{} bash -c 'fuzz {}' 9>&- || die "a target failed"
