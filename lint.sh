#!/usr/bin/env bash
# Checks format and likely mistakes (clang-format, shellcheck, clang-tidy), the changelog's version, the manual's error lines.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

usage() {
    say "Usage: ./lint.sh [--fix] [FILE]..."
    say "Checks FILEs, or everything: the format of C++ (clang-format), shell scripts (shellcheck), likely mistakes in C++"
    say "(clang-tidy), the changelog's version, the manual's error lines. Without FILE also prints the shares of tests and soak."
    say "A clean source is checked again only after the source, a header or a rule has changed."
    say "--fix    corrects the format, and the mistakes that clang-tidy can correct"
    say "Example: ./lint.sh \$(git diff --name-only main)"
}

fix=
case ${1-} in
--fix)
    fix=yes
    shift
    ;;
-*)
    usage
    [[ $1 == --help || $1 == -h ]] && exit 0 || exit 2
    ;;
esac
named=()
for file in "$@"; do
    named+=("$(realpath -- "$file")")
done
cd "$root"
status=0

complain() {
    say "$*"
    status=1
}

# files PATTERN...: lists the matching files that git tracks or would add; of the named FILEs only, if any were named.
files() {
    local file
    while read -r file; do
        [[ -e $file ]] || continue
        [[ ${#named[@]} -eq 0 || " ${named[*]} " == *" $root/$file "* ]] && printf '%s\n' "$file"
    done < <(git ls-files --cached --others --exclude-standard -- "$@")
    return 0
}

check_form() {
    local sources
    mapfile -t sources < <(files '*.cpp' '*.h')
    [[ ${#sources[@]} -gt 0 ]] || return 0
    if [[ -n $fix ]]; then
        clang-format -i "${sources[@]}"
    else
        clang-format --dry-run --Werror "${sources[@]}" || complain "clang-format would write some sources otherwise: ./lint.sh --fix"
    fi
}

check_scripts() {
    local scripts
    mapfile -t scripts < <(files '*.sh' scripts/run .ci/run)
    [[ ${#scripts[@]} -eq 0 ]] || shellcheck -x -P "$root" "${scripts[@]}" || complain "shellcheck found mistakes"
}

check_changelog() {
    local version newest
    version=$(sed -nE 's/^project\(.* VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
    newest=$(sed -nE 's/^## ([0-9.]+).*/\1/p' CHANGELOG.md | head -n 1)
    [[ $version == "$newest" ]] ||
        complain "CMakeLists.txt has version $version, the first in CHANGELOG.md is ${newest:-none}: make them agree"
}

# compile_database PRESET FOLDER: records how each source is compiled, without precompiled headers. Builds nothing.
compile_database() {
    quietly "lint-$1.log" cmake --preset "$1" -S "$root" -B "$2" -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DQUELTA_TRAP_UB=OFF ||
        die "CMake could not configure $1: see build/logs/lint-$1.log"
}

# Prints the cross compiler's header folders as arguments, without GCC's own headers: clang-tidy has its own of those.
cross_headers() {
    x86_64-w64-mingw32-g++-posix -E -x c++ -v - </dev/null 2>&1 >/dev/null |
        sed -n '/search starts/,/End of/s/^ //p' | grep -vE '/gcc/x86_64-w64-mingw32/[^/]+/include(-fixed)?$' |
        sed 's/^/--extra-arg=-isystem\n--extra-arg=/'
}

# Prints everything that clang-tidy's answer depends on, except the source itself.
rules() {
    clang-tidy-22 --version
    printf '%s\n' "$@"
    git ls-files --cached --others --exclude-standard -- '*.h' '*.clang-tidy' '*CMakeLists.txt' '*.cmake' '*.h.in' |
        xargs cat --
}

# check_source RULES DATABASE SOURCE ARGUMENT...: checks one source, in a process that xargs starts.
# shellcheck disable=SC2317
check_source() {
    local clean output
    clean=$build/lint/clean/$({ echo "$1 $3" && cat "$3"; } | sha256sum | cut -c1-40)
    [[ ! -e $clean ]] || return 0
    if output=$(clang-tidy-22 -p "$2" --quiet --warnings-as-errors='*' "${@:4}" "$3" 2>&1 </dev/null); then
        : >"$clean"
    else
        printf '%s\n' "$output"
        return 1
    fi
}
export -f check_source
export build

# check_mistakes PRESET PATTERN ARGUMENT...: checks the sources of this pattern that the preset compiles.
check_mistakes() {
    local database=$build/lint/$1 rules sources jobs
    compile_database "$1" "$database"
    rules=$(rules "${@:3}" | sha256sum)
    mapfile -t sources < <(comm -12 <(files "$2" | sed "s|^|$root/|" | sort) \
        <(sed -n 's/^ *"file": "\(.*\)",\?$/\1/p' "$database/compile_commands.json" | sort -u))
    [[ ${#sources[@]} -gt 0 ]] || return 0
    # --fix takes one source at a time: two sources may share a header.
    jobs=$(nproc)
    [[ -z $fix ]] || jobs=1
    mkdir -p "$build/lint/clean"
    printf '%s\0' "${sources[@]}" |
        xargs -0 -P "$jobs" -I{} bash -c 'check_source "$@"' check_source "$rules" "$database" {} "${@:3}" 9>&- ||
        complain "clang-tidy found mistakes"
}

lines() {
    files "$@" | tr '\n' '\0' | xargs -0 cat -- | grep -c '[^[:space:]]'
}

# share PART ALL: prints the share in percent, with one decimal.
share() {
    printf '%d.%d %%' $(($1 * 100 / $2)) $(($1 * 1000 / $2 % 10))
}

tell_shares() {
    local all tests soak
    all=$(lines '*.cpp' '*.h' '*.sh' scripts/run .ci/run)
    tests=$(lines 'tests/*.cpp' 'tests/*.h' 'tests/*.sh')
    soak=$(lines 'bench/soak/*.cpp' 'bench/soak/*.h')
    say "$all lines of C++ and shell that are not blank; tests $tests, $(share "$tests" "$all"); tests and soak $(share $((tests + soak)) "$all")"
}

lock_checkout exclusive
need_packages "${build_packages[@]}" "${test_packages[@]}" "${lint_packages[@]}"
check_form
check_scripts
check_changelog
tests/packaging/error_lines_test.sh || complain "the table of error lines and the module disagree"
mapfile -t cross < <(cross_headers)
tidy=(${fix:+--fix} --extra-arg=-std=c++2b --extra-arg=-Wno-sign-conversion
    # One header of the cross compiler needs this: clang-tidy does not treat that header as a system header.
    --extra-arg=-Wno-deprecated-declarations)
check_mistakes mingw-debug '*.cpp' "${tidy[@]}" --extra-arg-before=--target=x86_64-w64-mingw32 --extra-arg=-nostdinc++ "${cross[@]}"
for folder in fuzz races; do
    check_mistakes native-fuzz "tests/$folder/*.cpp" "${tidy[@]}"
done
[[ ${#named[@]} -gt 0 ]] || tell_shares
[[ $status -ne 0 ]] || say "clean"
exit "$status"
