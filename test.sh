#!/usr/bin/env bash
# Builds everything and runs all tests. Arguments go to ctest: ./test.sh -R Signing
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

if [[ ${1-} == --help || ${1-} == -h ]]; then
    say "Usage: ./test.sh [--release] [CTEST-ARGUMENT]..."
    say "Installs missing packages, builds everything under build/, and runs all tests with ctest."
    say "--release    also runs the end-to-end tests with the release build"
    say "Example: ./test.sh -R Signing    runs the tests whose names contain Signing"
    exit 0
fi
release=()
if [[ ${1-} == --release ]]; then
    release=(-C Release)
    shift
fi
[[ ${1-} != -- ]] || shift

# Joins the tests of both builds into one run with one summary.
join_tests() {
    local preset
    for preset in "$@"; do
        [[ ! -e $build/$preset/CTestTestfile.cmake ]] || printf 'subdirs("%s")\n' "$preset"
    done >"$build/CTestTestfile.cmake"
}

# Without arguments the passed tests are not shown. With arguments ctest's output is shown in full.
run_tests() {
    local passed='^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test +#[0-9]+:.* Passed )'
    local ctest=(ctest --test-dir "$build" --parallel "$(nproc)" --output-on-failure --no-tests=error "${release[@]}" "$@") status=0
    if [[ $# -gt 0 ]]; then
        "${ctest[@]}" </dev/null 9>&- || status=$?
    else
        "${ctest[@]}" 2>&1 </dev/null 9>&- | { grep --line-buffered -vE "$passed" || true; } || status=$?
    fi
    return "$status"
}

lock_checkout exclusive
need_packages "${build_packages[@]}" "${test_packages[@]}"
start_display
prepare_prefix
build_preset native-fuzz
build_preset mingw-debug
[[ ${#release[@]} -eq 0 ]] || build_preset mingw-release
join_tests native-fuzz mingw-debug
run_tests "$@"
