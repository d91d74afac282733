#!/usr/bin/env bash
# Makes what is handed out, in build/release: an installer, a zip of the module, the tool and the documents, and their checksums.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"
# shellcheck source=scripts/binaries.sh
source "$root/scripts/binaries.sh"

usage() {
    cat <<'END'
Usage: ./package.sh [--module FILE] [--sign FILE.p12 --password-file FILE] [--timestamp URL]
  --module FILE         the QueltaCSP.dll that was built with Visual C++: makes the package for real tokens.
                        Without it: the developer package, whose module works above the software token alone
  --sign FILE.p12       signs every program and DLL, and the installer, with this key
  --password-file FILE  the key's password is the first line of this file
  --timestamp URL       and has a time stamp put on each signature
Example: ./package.sh --module QueltaCSP.dll
END
}

refuse_usage() {
    say "package.sh: $1; ./package.sh --help tells what there is" >&2
    exit 2
}

module="" key="" password="" timestamp=()
while [[ $# -gt 0 ]]; do
    case $1 in
    -h | --help) usage && exit 0 ;;
    --module | --sign | --password-file | --timestamp)
        [[ $# -ge 2 ]] || refuse_usage "$1 wants a value"
        case $1 in
        --module) module=$2 ;;
        --sign) key=$2 ;;
        --password-file) password=$2 ;;
        --timestamp) timestamp=(-ts "$2") ;;
        esac
        shift 2
        ;;
    *) refuse_usage "$1 is not known" ;;
    esac
done
for file in "$module" "$key" "$password"; do
    [[ -z $file || -r $file && -f $file ]] || die "$file is no file that can be read"
done
[[ -z $key || -n $password ]] || refuse_usage "--sign wants --password-file too"

version=$(project_version)
release=$build/release
# Every time in what is made is that of the commit; strip reads it too.
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null || echo 1767225600)
export SOURCE_DATE_EPOCH

# Licences of what is linked into the binaries, as their packages state them.
licensed=(nlohmann-json3-dev libcli11-dev mingw-w64-x86-64-dev g++-mingw-w64-x86-64-posix)

collect() {
    local folder=$1 name
    mkdir -p "$folder/docs" "$folder/licences"
    cp "$programs"/quelta.exe "$folder"
    cp "$root"/README.md "$root"/CHANGELOG.md "$folder"
    cp "$root"/docs/* "$folder/docs"
    for name in "${licensed[@]}"; do cp "/usr/share/doc/$name/copyright" "$folder/licences/$name.txt"; done
    if [[ -n $module ]]; then
        cp "$module" "$folder/QueltaCSP.dll"
    else
        cp "$programs/QueltaCSP.dll" "$folder"
        mkdir "$folder/softtoken"
        cp "$programs"/../softtoken/{QueltaDSCLibrary.dll,quelta-token.exe} "$root/softtoken/README.md" "$folder/softtoken"
    fi
    # Debugging information stays here.
    find "$folder" \( -name '*.exe' -o -name '*.dll' \) ! -path "${module:+$folder/QueltaCSP.dll}" \
        -exec x86_64-w64-mingw32-strip --strip-all {} +
    chmod -R u=rwX,go=rX "$folder"
}

# In a folder of its own, with what is in the installer alone.
collect_installer() {
    local folder=$1
    cp -r "$work/$name" "$folder"
    cat "$folder"/licences/*.txt >"$folder/licences.txt"
    cp "$programs/../installer/quelta_installer.dll" "$folder"
    x86_64-w64-mingw32-strip --strip-all "$folder/quelta_installer.dll"
    [[ -z $key ]] || sign_all "$folder" -name quelta_installer.dll
    settle_times "$folder"
}

# sign_all FOLDER [CONDITION-OF-FIND]...
sign_all() {
    local file
    find "$1" -type f "${@:2}" \( -name '*.exe' -o -name '*.dll' -o -name '*.msi' \) | sort | while read -r file; do
        quietly sign.log osslsigncode sign -pkcs12 "$key" -readpass "$password" -h sha256 -n Quelta "${timestamp[@]}" \
            -in "$file" -out "$file.signed" || die "$(basename "$file") could not be signed: see build/logs/sign.log"
        mv "$file.signed" "$file"
    done
}

settle_times() {
    find "$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
}

# The same content gives the same file: names in order.
pack() {
    local folder=$1 archive=$2
    settle_times "$folder"
    (cd "$(dirname "$folder")" && find "$(basename "$folder")" | LC_ALL=C sort | TZ=UTC zip -q -X -9 "$archive" -@)
}

take_turn exclusive
need_packages "${build_packages[@]}" "${release_packages[@]}"
[[ -z $module ]] || check_product_module "$module" "$version"
build_preset mingw-release
programs=$build/mingw-release/bin

kind=developer
[[ -z $module ]] || kind=product
name=Quelta-developer-$version
[[ -z $module ]] || name=Quelta-$version
work=$build/release-work
rm -rf "$work" "$release"
mkdir -p "$work" "$release"
collect "$work/$name"
[[ -z $key ]] || sign_all "$work/$name"
pack "$work/$name" "$release/$name.zip"
collect_installer "$work/installer"
quietly installer.log "$root/installer/make_msi.sh" "$kind" "$version" "$work/installer" "$release/$name.msi" ||
    die "the installer could not be made: see build/logs/installer.log"
[[ -z $key ]] || sign_all "$release" -name "$name.msi"
(cd "$release" && sha256sum -- * >SHA256SUMS)
rm -rf "$work"
say "build/release:"
(cd "$release" && ls -1)
[[ -n $module ]] || say "This is the developer package: its module cannot load the maker's library; see docs/releasing.md."
