#!/usr/bin/env bash
# licences.sh KIND: prints the licences of what is linked into the package (product or developer). Each component has a heading, and
# the texts that its licence refers to follow. They come from the copyright files of the Debian packages.
set -euo pipefail

kind=$1
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
case $kind in
product) module="" of_token="" ;;
developer) module="QueltaCSP.dll, " of_token=", quelta-token.exe, QueltaDSCLibrary.dll" ;;
*) exit 2 ;;
esac
mingw_built="${module}quelta.exe, quelta-publish.exe and the installer$of_token"

stated_by() {
    echo "/usr/share/doc/$1/copyright"
}

version_of() {
    dpkg-query -W -f '${Version}' "$1" | sed 's/^[0-9]*://; s/[-+].*//'
}

heading() {
    printf '%s\n%s\n%s\n\n' "${line:=$(printf '=%.0s' {1..100})}" "$1" "$line"
}

# Another version of a package may state its licence in another form.
nothing_stated() {
    echo "$(stated_by "$1") says nothing of $2" >&2
    exit 1
}

# holders PACKAGE FILES...: prints the holders of the copyright of these files.
holders() {
    local files
    for files in "${@:2}"; do
        grep -qxF "Files: $files" "$(stated_by "$1")" || nothing_stated "$1" "$files"
        awk -v RS= -v files="Files: $files" 'substr($0, 1, length(files) + 1) == files "\n" { print; exit }' "$(stated_by "$1")" |
            sed -n '/^Copyright:/,/^License:/{ /^License:/d; s/^Copyright: */Copyright /; s/^[ \t]\+/          /; p }'
    done
}

# text PACKAGE LICENCE: prints the text of the licence.
text() {
    grep -qxF "License: $2" "$(stated_by "$1")" || nothing_stated "$1" "$2"
    echo
    awk -v RS= -v name="License: $2" '{ start = index($0, name "\n ") } start && !found++ { print substr($0, start + length(name) + 1) }' \
        "$(stated_by "$1")" | sed 's/^ //; s/^\.$//'
    echo
}

[[ ! -e $root/LICENSE ]] || { heading "Quelta" && cat "$root/LICENSE" && echo; }

heading "nlohmann-json $(version_of nlohmann-json3-dev): in quelta.exe$of_token"
holders nlohmann-json3-dev '*' include/nlohmann/detail/conversions/to_chars.hpp include/nlohmann/detail/output/serializer.hpp
text nlohmann-json3-dev Expat

heading "CLI11 $(version_of libcli11-dev): in quelta.exe${of_token%%, Quelta*}"
holders libcli11-dev '*'
text libcli11-dev BSD-3-clause

if [[ $kind == product ]]; then
    heading "Runtime of Microsoft Visual C++: in QueltaCSP.dll"
    cat <<'END'
Copyright Microsoft Corporation. Parts of the runtime are linked into the module. The licence terms of Visual Studio name them among
the code that may be distributed with a program.

END
fi

mingw='mingw-w64-x86-64-dev'
heading "Runtime of mingw-w64 $(version_of $mingw): in $mingw_built"
holders "$mingw" '*'
text "$mingw" ZPL-2.1
holders "$mingw" 'mingw-w64-crt/gdtoa/*'
text "$mingw" Lucent
holders "$mingw" mingw-w64-crt/gdtoa/qnan.c
text "$mingw" David-Gay
holders "$mingw" mingw-w64-crt/misc/basename.c
text "$mingw" Keith-Marshall
holders "$mingw" 'mingw-w64-libraries/winpthreads/*'
text "$mingw" expat
holders "$mingw" mingw-w64-libraries/winpthreads/include/pthread.h
text "$mingw" BSD-3-clause-Lockless

gcc='g++-mingw-w64-x86-64-posix'
heading "Runtime of GCC $(version_of $gcc): in $mingw_built"
cat <<'END'
Copyright Free Software Foundation, Inc. libstdc++ and libgcc: GNU General Public License, version 3 or later, with the GCC Runtime
Library Exception, which lets a program that is linked with them be distributed under its own terms. Both texts:

END
sed -n '/^GCC RUNTIME LIBRARY EXCEPTION/,/^requirements of the license of GCC/p' "$(stated_by "$gcc")"
echo
cat /usr/share/common-licenses/GPL-3
