#!/usr/bin/env bash
# Makes the release files: an installer; a zip with the module, the tool and the documents; and their checksums.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/scripts/setup.sh"
# shellcheck source=scripts/binaries.sh
source "$root/scripts/binaries.sh"

usage() {
    cat <<'END'
Usage: ./package.sh [--module FILE] [--output FOLDER] [--sign FILE.p12 --password-file FILE [--timestamp URL]]
       ./package.sh --stage FOLDER [--module FILE]
       ./package.sh --from-stage FOLDER [--output FOLDER]
       ./package.sh --sums [--output FOLDER]

Makes the installer, the zip and SHA256SUMS: all at once (first line), or in steps, so that a key in hardware can sign:

  1. ./package.sh --module QueltaCSP.dll --stage FOLDER    copies the files to pack into FOLDER
  2. sign the .exe and .dll files in FOLDER and FOLDER/installer with signtool, on Windows
  3. ./package.sh --from-stage FOLDER                      packs the files
  4. sign the .msi with signtool
  5. ./package.sh --sums                                   writes SHA256SUMS

  --module FILE         makes the package for real tokens with this QueltaCSP.dll, which was built with Visual C++.
                        Without --module: the developer package, whose module works only with the software token
  --output FOLDER       puts the installer, the zip and SHA256SUMS into FOLDER (default: build/release).
                        Removes those of an earlier run from FOLDER
  --sign FILE.p12       signs at once. For tests only: a real code-signing key is in hardware, not in a file.
                        A file that is already signed, such as the module, keeps its signature
  --password-file FILE  reads the key's password from the first line of FILE
  --timestamp URL       adds a time stamp from URL to each signature

Example: ./package.sh --module QueltaCSP.dll
END
}

refuse_usage() {
    say "package.sh: $1; ./package.sh --help tells what there is" >&2
    exit 2
}

# The task is all, stage, from-stage or sums.
task=all module="" key="" password="" timestamp=() stage=$build/release-stage release=$build/release
choose_task() {
    [[ $task == all ]] || refuse_usage "$1 and --$task are separate steps"
    task=${1#--}
}
while [[ $# -gt 0 ]]; do
    case $1 in
    -h | --help) usage && exit 0 ;;
    --sums) choose_task "$1" && shift ;;
    --module | --output | --stage | --from-stage | --sign | --password-file | --timestamp)
        [[ $# -ge 2 && -n $2 ]] || refuse_usage "$1 wants a value"
        case $1 in
        --module) module=$2 ;;
        --output) release=$(realpath -m "$2") ;;
        --stage | --from-stage) choose_task "$1" && stage=$(realpath -m "$2") ;;
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
[[ -z $key || $task == all ]] || refuse_usage "--sign signs at once, and the steps are for signtool"
[[ -z $key || -n $password ]] || refuse_usage "--sign wants --password-file too"
[[ -z $module || $task == all || $task == stage ]] || refuse_usage "--$task takes the module that was staged, and no --module"

version=$(project_version)
# Every time in the release files is the commit's time. strip reads this variable too.
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null || echo 1767225600)
export SOURCE_DATE_EPOCH
work=$build/release-work

# Copies everything that is packed into the stage. Files that only the installer uses get a folder of their own.
lay_out() {
    local programs=$build/mingw-release kind=developer
    mkdir -p "$stage"/{docs,examples,installer}
    cp "$programs"/bin/quelta.exe "$root/CHANGELOG.md" "$stage"
    cp "$root/installer/zip_readme.md" "$stage/README.md"
    cp "$root"/docs/{administrators,integrators,tool}.md "$stage/docs"
    cp "$root"/examples/*.cpp "$stage/examples"
    cp "$programs"/installer/{quelta_installer.dll,quelta-publish.exe} "$root/installer/quelta-check.cmd" "$stage/installer"
    if [[ -n $module ]]; then
        kind=product
        cp "$module" "$stage/QueltaCSP.dll"
    else
        cp "$programs/bin/QueltaCSP.dll" "$stage"
        mkdir "$stage/softtoken"
        cp "$programs"/softtoken/{QueltaDSCLibrary.dll,quelta-token.exe} "$root/softtoken/README.md" "$stage/softtoken"
    fi
    "$root/installer/licences.sh" "$kind" >"$stage/licences.txt" || die "the licences could not be collected"
    # Debugging information is not released.
    find "$stage" \( -name '*.exe' -o -name '*.dll' \) ! -path "${module:+$stage/QueltaCSP.dll}" \
        -exec x86_64-w64-mingw32-strip --strip-all {} +
    chmod -R u=rwX,go=rX "$stage"
    [[ -e $root/LICENSE ]] || say "The product has no licence yet: its owner chooses one, and puts it into the file LICENSE."
}

is_signed() {
    case $1 in
    *.msi) [[ $(msiinfo streams "$1") == *DigitalSignature* ]] ;;
    *) [[ $(x86_64-w64-mingw32-objdump -p "$1") != *$'\nEntry 4 0000000000000000 00000000 Security Directory'* ]] ;;
    esac
}

programs_in() {
    find "$1" -type f \( -name '*.exe' -o -name '*.dll' -o -name '*.msi' \) | LC_ALL=C sort
}

# This signature is for tests. A release is signed with signtool between the steps.
sign_all() {
    local file
    programs_in "$1" | while read -r file; do
        is_signed "$file" && continue
        quietly sign.log osslsigncode sign -pkcs12 "$key" -readpass "$password" -h sha256 -n Quelta "${timestamp[@]}" \
            -in "$file" -out "$file.signed" || die "$(basename "$file") could not be signed: see build/logs/sign.log"
        mv "$file.signed" "$file"
    done
}

tell_unsigned() {
    local file unsigned=()
    while read -r file; do is_signed "$file" || unsigned+=("${file##*/}"); done < <(programs_in "$1")
    [[ ${#unsigned[@]} -eq 0 ]] || say "Not signed: ${unsigned[*]}."
}

settle_times() {
    find "$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
}

# Sorts the names, so that the same content gives the same file.
zip_folder() {
    local folder=$1 archive=$2
    settle_times "$folder"
    (cd "$(dirname "$folder")" && find "$(basename "$folder")" | LC_ALL=C sort | TZ=UTC zip -q -X -9 "$archive" -@)
}

# Prints the name of the staged package.
staged_name() {
    [[ -e $stage/softtoken ]] && echo "Quelta-developer-$version" || echo "Quelta-$version"
}

check_stage() {
    local found
    [[ -e $stage/quelta.exe && -e $stage/QueltaCSP.dll && -e $stage/installer/quelta_installer.dll ]] ||
        die "$stage holds nothing to pack: lay it out with --stage $stage"
    found=$(product_version_of "$stage/quelta.exe")
    [[ $found == "$version.0" ]] || die "$stage is of version ${found:-unknown}, and this is $version: lay it out anew with --stage"
    [[ -e $stage/softtoken ]] || check_product_module "$stage/QueltaCSP.dll" "$version"
}

pack() {
    local name kind=product
    name=$(staged_name)
    [[ $name == Quelta-"$version" ]] || kind=developer
    rm -rf "$work"
    mkdir -p "$work" "$release"
    rm -f "$release"/Quelta-*.{msi,zip} "$release/SHA256SUMS"
    cp -r "$stage" "$work/installer"
    mv "$work/installer/installer"/* "$work/installer"
    cp -r "$stage" "$work/$name"
    rm -r "$work/$name/installer"
    chmod -R u=rwX,go=rX "$work"
    zip_folder "$work/$name" "$release/$name.zip"
    settle_times "$work/installer"
    quietly installer.log "$root/installer/make_msi.sh" "$kind" "$version" "$work/installer" "$release/$name.msi" ||
        die "the installer could not be made: see build/logs/installer.log"
    [[ -z $key ]] || sign_all "$release"
    rm -rf "$work"
    [[ $kind == product ]] || say "This is the developer package: its module cannot load the maker's library; see docs/releasing.md."
}

sum_up() {
    local files=("$release"/Quelta-*.msi "$release"/Quelta-*.zip)
    [[ -e ${files[0]} ]] || die "$release holds no installer: pack it first"
    (cd "$release" && sha256sum -- "${files[@]##*/}" >SHA256SUMS)
}

stage_anew() {
    [[ -z $(ls -A "$stage" 2>/dev/null) ]] || die "$stage is not empty: remove it, or name another folder"
    [[ -z $module ]] || check_product_module "$module" "$version"
    build_preset mingw-release
    lay_out
}

tell_release() {
    say "${release#"$root/"}:"
    (cd "$release" && ls -1)
}

lock_checkout exclusive
need_packages "${build_packages[@]}" "${release_packages[@]}"
case $task in
all)
    rm -rf "$stage"
    stage_anew
    [[ -z $key ]] || sign_all "$stage"
    pack
    rm -rf "$stage"
    sum_up
    tell_release
    ;;
stage)
    stage_anew
    say "${stage#"$root/"} holds what will be packed. Sign the .exe and .dll files in it and in its folder installer; then:"
    say "./package.sh --from-stage $stage"
    ;;
from-stage)
    check_stage
    pack
    tell_release
    tell_unsigned "$stage"
    say "Sign the .msi; then: ./package.sh --sums --output $release"
    ;;
sums)
    sum_up
    tell_release
    tell_unsigned "$release"
    ;;
esac
