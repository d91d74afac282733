#!/usr/bin/env bash
# Runs ./package.sh as somebody who makes a release does: both packages, modules that it must refuse, signatures with a throw-away key,
# and the installers under Wine. It builds, and locks the checkout. So it is run by itself and not by ctest.
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

# make_module VERSION RUNTIMES [DROPPED-EXPORT]: makes a module with the exports and imports of another compiler, and no code.
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

# Packs, but never into build/release: a release may stand there.
package() {
    "$root/package.sh" --output "$work/release" "$@"
}

unpacked() {
    rm -rf "$work/unpacked" "$work/extracted"
    (cd "$work/release" && sha256sum --check --quiet --strict SHA256SUMS && [[ $(wc -l <SHA256SUMS) -eq 2 ]]) || return 1
    cp "$work/release/$1.msi" "$work" && unzip -q "$work/release/$1.zip" -d "$work/unpacked" &&
        msiextract -C "$work/extracted" "$work/$1.msi"
}

product_holds_the_given_module() {
    local folder=$work/unpacked/Quelta-$version
    package --module "$work/module.dll" && unpacked "Quelta-$version" && cmp "$work/module.dll" "$folder/QueltaCSP.dll" &&
        [[ -z $(find "$folder" -name 'QueltaDSCLibrary*' -o -name 'quelta-token*') ]]
}

# Every link in the documents of the zip leads to a file of the zip.
zip_is_complete() {
    local file link
    while IFS=: read -r file link; do
        [[ -e $(dirname "$file")/${link%%#*} || -z ${link%%#*} ]] || { echo "$file: $link" && return 1; }
    done < <(grep -roP --include='*.md' '\]\(\K(?!http)[^)]*' "$work/unpacked")
}

# names_licences MODULES-RUNTIME OTHER: each component has one heading, and a text below.
names_licences() {
    local text=$work/extracted/Quelta/licences.txt
    [[ $(grep -cE '^(Quelta$|(nlohmann-json|CLI11|Runtime of) .*: in .*)' "$text") -eq $(($(grep -c '^====' "$text") / 2)) ]] &&
        grep "^Runtime of $1.*QueltaCSP.dll" "$text" && ! grep "^Runtime of $2.*QueltaCSP.dll" "$text" &&
        grep '^Permission is hereby granted' "$text" && grep '^GCC RUNTIME LIBRARY EXCEPTION' "$text" &&
        grep 'GNU GENERAL PUBLIC LICENSE' "$text"
}

signed() {
    osslsigncode verify -CAfile "$work/certificate.pem" -in "$1"
}

all_signed() {
    local file
    find "$@" -type f \( -name '*.exe' -o -name '*.dll' -o -name '*.msi' \) >"$work/programs"
    while read -r file; do signed "$file" || return 1; done <"$work/programs"
    [[ $(wc -l <"$work/programs") -gt 3 ]]
}

developer_package_is_signed() {
    package --sign "$work/key.p12" --password-file "$work/password" && unpacked "Quelta-developer-$version" &&
        all_signed "$work/unpacked" "$work/extracted" "$work/Quelta-developer-$version.msi"
}

# Signs in place of signtool.
sign() {
    local file
    for file in "$@"; do
        osslsigncode sign -pkcs12 "$work/key.p12" -readpass "$work/password" -h sha256 -in "$file" -out "$file.signed" &&
            mv "$file.signed" "$file" || return 1
    done
}

product_is_made_in_steps() {
    local stage=$work/stage
    cp "$work/module.dll" "$work/signed.dll"
    sign "$work/signed.dll" && "$root/package.sh" --stage "$stage" --module "$work/signed.dll" || return 1
    package --from-stage "$stage" | grep 'Not signed: quelta-publish.exe quelta_installer.dll quelta.exe' || return 1
    sign "$stage/quelta.exe" "$stage"/installer/*.{exe,dll} && package --from-stage "$stage" && sign "$work/release/Quelta-$version.msi" &&
        package --sums && unpacked "Quelta-$version" && cmp "$work/signed.dll" "$work/unpacked/Quelta-$version/QueltaCSP.dll" &&
        all_signed "$work/unpacked" "$work/extracted" "$work/Quelta-$version.msi"
}

# Lays out the files for make_msi.sh, from which the installer's test makes other versions.
keep_parts() {
    "$root/package.sh" --stage "$work/parts" && mv "$work"/parts/installer/* "$work/parts"
}

same_again() {
    sha256sum "$work/release/$1".* >"$work/sums"
    package "${@:2}" && sha256sum --check --quiet "$work/sums"
}

# make_library FILE TEXT: makes a device library with the exports and imports of the maker's compiler.
make_library() {
    printf 'const char text[] = "%s"; int of_ucrtbase(); int quelta_init() { return of_ucrtbase(); } int DllMainCRTStartup() { return 1; }' \
        "$2" >"$work/library.c"
    x86_64-w64-mingw32-gcc-posix -shared -nostdlib -o "$1" "$work/library.c" -L "$work" -lucrtbase
}

changed_byte_shows() {
    cp "$work/unpacked/Quelta-developer-$version/QueltaCSP.dll" "$work/changed.dll"
    printf 'x' | dd of="$work/changed.dll" bs=1 seek=2000 conv=notrunc status=none
    ! signed "$work/changed.dll"
}

openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/key.pem" -out "$work/certificate.pem" -days 2 \
    -subj "/CN=Throw-away signer of a test" -addext extendedKeyUsage=codeSigning 2>/dev/null
echo 97531 >"$work/password"
openssl pkcs12 -export -inkey "$work/key.pem" -in "$work/certificate.pem" -out "$work/key.p12" -passout "file:$work/password"

check "the developer package is made and signed" developer_package_is_signed
check "its licences are named" names_licences GCC "Microsoft Visual"
check "its zip lacks nothing that it refers to" zip_is_complete
check "a stage is laid out" keep_parts
check "and is not laid out over" refused "is not empty" --stage "$work/parts"
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
check "its licences are named" names_licences "Microsoft Visual" GCC
check "its zip lacks nothing that it refers to" zip_is_complete
check "it is made and signed in steps" product_is_made_in_steps
make_library "$work/maker.dll" first
make_library "$work/newer.dll" second
# shellcheck source=tests/packaging/installer_test.sh
source "$root/tests/packaging/installer_test.sh"
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
