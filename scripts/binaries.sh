# shellcheck shell=bash
#
# Functions that read a DLL without running it. Source this file after setup.sh, whose variables it uses.
# shellcheck disable=SC2154

project_version() {
    sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt"
}

exports_of() {
    x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Ordinal\/Name Pointer/,/^$/s/^\t\[.*\] //p' | sort
}

imports_of() {
    x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^\tDLL Name: //p' | tr '[:upper:]' '[:lower:]' | sort -u
}

# Prints the product version from the version resource.
product_version_of() {
    x86_64-w64-mingw32-strings -e l "$1" | grep -x -A1 ProductVersion | tail -n 1
}

# check_product_module FILE VERSION: ends the script unless FILE is the module for real tokens in this version.
check_product_module() {
    local imports found
    [[ $(head -c 2 "$1") == MZ ]] || die "$1 is no DLL"
    diff <(exports_of "$1") <(sed '1,/^EXPORTS/d; s/ PRIVATE//; s/ //g' "$root/src/resources/QueltaCSP.def" | sort) >"$logs/exports.log" ||
        die "$1 has other exports than QueltaCSP.dll: see build/logs/exports.log"
    found=$(product_version_of "$1")
    [[ $found == "$2.0" ]] || die "$1 says that it is version ${found:-unknown}, and this is $2: build it anew from this checkout"
    imports=$(imports_of "$1")
    grep -qx queltadsclibrary.dll <<<"$imports" || die "$1 does not import QueltaDSCLibrary.dll"
    grep -qE '^(api-ms-win-crt-|ucrtbase)' <<<"$imports" ||
        die "$1 was not built with Visual C++ and cannot load the maker's library: build it with the preset windows-msvc"
    found=$(grep -E '^(vcruntime|msvcp)' <<<"$imports") || return 0
    die "$1 needs ${found//$'\n'/, } beside it: build it with the preset windows-msvc, which links the C++ runtime in"
}
