#!/usr/bin/env bash
# ./package.sh as the one who makes a release runs it: both packages, what is refused as a module, signatures with a throw-away key,
# and the installers under Wine. It builds, and takes its turn in the checkout, so that it is run by itself and not by ctest.
set -euo pipefail

root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
failed=0 passed=0

check() {
    local title=$1
    shift
    if "$@" >"$work/output" 2>&1; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "FAILED: $title"
        head -n 40 "$work/output" | cut -c1-200
    fi
}

refused() {
    local wanted=$1
    shift
    if "$root/package.sh" "$@" >"$work/refusal" 2>&1; then return 1; fi
    cat "$work/refusal"
    [[ $(wc -l <"$work/refusal") -eq 1 ]] && grep -q "$wanted" "$work/refusal"
}

# make_module VERSION RUNTIMES [DROPPED-EXPORT]: with the exports and imports of a module of another compiler, and no code.
make_module() {
    local names library libraries=(QueltaDSCLibrary) calls=quelta_init
    for library in $2; do
        libraries+=("$library")
        calls+=" of_$library"
    done
    mapfile -t names < <(sed '1,/^EXPORTS/d; s/ PRIVATE//; s/ //g' "$root/src/resources/QueltaCSP.def" | grep -vx "${3:-none}")
    {
        # shellcheck disable=SC2086
        printf 'int %s();\n' $calls
        # shellcheck disable=SC2046,SC2086
        printf 'int DllMainCRTStartup() { return 0 %s; }\n' "$(printf '+ %s()' $calls)"
        printf 'void %s() {}\n' "${names[@]}"
    } >"$work/module.c"
    { echo EXPORTS && printf '%s\n' "${names[@]}"; } >"$work/module.def"
    for library in "${libraries[@]}"; do
        printf 'LIBRARY %s.dll\nEXPORTS\n%s\n' "$library" "$([[ $library == Q* ]] && echo quelta_init || echo "of_$library")" >"$work/library.def"
        x86_64-w64-mingw32-dlltool --input-def "$work/library.def" --output-lib "$work/lib$library.a"
    done
    printf '1 VERSIONINFO FILEVERSION 1,0,0,0 BEGIN BLOCK "StringFileInfo" BEGIN BLOCK "040904E4" BEGIN %s END END END\n' \
        "VALUE \"ProductVersion\", \"$1.0\"" >"$work/module.rc"
    x86_64-w64-mingw32-windres "$work/module.rc" "$work/module.res.o"
    x86_64-w64-mingw32-gcc-posix -shared -nostdlib -fno-builtin -o "$work/module.dll" "$work"/module.{c,def,res.o} -L "$work" \
        "${libraries[@]/#/-l}"
}

unpacked() {
    rm -rf "$work/unpacked"
    (cd "$root/build/release" && sha256sum --check --quiet --strict SHA256SUMS && [[ $(wc -l <SHA256SUMS) -eq 2 ]]) || return 1
    cp "$root/build/release/$1.msi" "$work" && unzip -q "$root/build/release/$1.zip" -d "$work/unpacked"
}

product_holds_the_given_module() {
    local folder=$work/unpacked/Quelta-$version
    "$root/package.sh" --module "$work/module.dll" && unpacked "Quelta-$version" &&
        cmp "$work/module.dll" "$folder/QueltaCSP.dll" && [[ -s $folder/licences/nlohmann-json3-dev.txt ]] &&
        [[ -z $(find "$folder" -name 'QueltaDSCLibrary*' -o -name 'quelta-token*') ]]
}

signed() {
    osslsigncode verify -CAfile "$work/certificate.pem" -in "$1"
}

developer_package_is_signed() {
    local folder=$work/unpacked/Quelta-developer-$version file
    "$root/package.sh" --sign "$work/key.p12" --password-file "$work/password" && unpacked "Quelta-developer-$version" || return 1
    for file in QueltaCSP.dll quelta.exe softtoken/QueltaDSCLibrary.dll softtoken/quelta-token.exe; do
        signed "$folder/$file" || return 1
    done
    msiextract -C "$work/extracted" "$work/Quelta-developer-$version.msi" && signed "$work/Quelta-developer-$version.msi" &&
        signed "$(find "$work/extracted" -name quelta.exe)"
}

# What make_msi.sh takes, for versions of the installer's test.
keep_parts() {
    mv "$work/unpacked/Quelta-developer-$version" "$work/parts"
    cat "$work"/parts/licences/* >"$work/parts/licences.txt"
    cp "$root/build/mingw-release/installer/quelta_installer.dll" "$work/parts"
}

same_again() {
    sha256sum "$work/$1.msi" "$root/build/release/$1".* >"$work/sums"
    "$root/package.sh" "${@:2}" && cp "$root/build/release/$1.msi" "$work" && sha256sum --check --quiet "$work/sums"
}

changed_byte_shows() {
    cp "$work/parts/QueltaCSP.dll" "$work/changed.dll"
    printf 'x' | dd of="$work/changed.dll" bs=1 seek=2000 conv=notrunc status=none
    ! signed "$work/changed.dll"
}

openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/key.pem" -out "$work/certificate.pem" -days 2 \
    -subj "/CN=Throw-away signer of a test" -addext extendedKeyUsage=codeSigning 2>/dev/null
echo 97531 >"$work/password"
openssl pkcs12 -export -inkey "$work/key.pem" -in "$work/certificate.pem" -out "$work/key.p12" -passout "file:$work/password"

check "the developer package is made and signed" developer_package_is_signed
keep_parts
check "a changed byte shows" changed_byte_shows
check "a module of the other compiler is refused" refused "preset windows-msvc" \
    --module "$root/build/mingw-release/bin/QueltaCSP.dll"
make_module "$version" ucrtbase CPSignHash
check "an export too few is refused" refused "other exports" --module "$work/module.dll"
make_module 0.9.9 ucrtbase
check "another version is refused" refused "version 0.9.9.0, and this is $version" --module "$work/module.dll"
make_module "$version" "ucrtbase vcruntime140 msvcp140"
check "a module that needs the compiler's DLLs is refused" refused "needs msvcp140.dll, vcruntime140.dll" --module "$work/module.dll"
check "what is no DLL is refused" refused "no DLL" --module "$root/README.md"
make_module "$version" ucrtbase
check "the package for real tokens holds the given module, and no stand-in" product_holds_the_given_module
check "and is the same when it is made again" same_again "Quelta-$version" --module "$work/module.dll"
# shellcheck source=tests/packaging/installer_test.sh
source "$root/tests/packaging/installer_test.sh"
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
