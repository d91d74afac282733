#!/usr/bin/env bash
# make_msi.sh KIND VERSION FOLDER MSI: makes the installer (KIND is product or developer) from the files in FOLDER: QueltaCSP.dll,
# quelta.exe, quelta_installer.dll, quelta-publish.exe, quelta-check.cmd, licences.txt, and softtoken/ for the developer package. Files
# with the same content and times give the same installer.
set -euo pipefail

source_file=$(realpath "$(dirname "${BASH_SOURCE[0]}")")/quelta.wxs
kind=$1 version=$2 folder=$3 msi=$(realpath "$4")

# Prints an identifier that is made from a text. The same text gives the same identifier.
guid_of() {
    local hash
    hash=$(sha256sum <<<"$1" | tr '[:lower:]' '[:upper:]')
    printf '%s' "${hash:0:8}-${hash:8:4}-5${hash:13:3}-8${hash:17:3}-${hash:20:12}"
}

queries=()
query() {
    queries+=(-q "$1")
}

# actions_of WHEN: prints the custom actions of the source with this Execute attribute.
actions_of() {
    sed -n "s/.*<CustomAction Id=\"\([^\"]*\)\".* Execute=\"$1\".*/\1/p" "$source_file"
}

# Adds what WiX does and wixl does not.
complete() {
    local name
    # wixl does not know environment variables, such as PATH.
    query "CREATE TABLE Environment (Environment CHAR(72) NOT NULL, Name CHAR(255) NOT NULL LOCALIZABLE,
        Value CHAR(255) LOCALIZABLE, Component_ CHAR(72) NOT NULL PRIMARY KEY Environment)"
    query "INSERT INTO Environment (Environment, Name, Value, Component_)
        VALUES ('Path', '=-*PATH', '[~];[INSTALLDIR]', 'Tool')"
    query "INSERT INTO InstallExecuteSequence (Action, Sequence) VALUES ('RemoveEnvironmentStrings', 3300)"
    query "INSERT INTO InstallExecuteSequence (Action, Sequence) VALUES ('WriteEnvironmentStrings', 5200)"
    # wixl looks for the folder of the menu beside the files.
    query "UPDATE RemoveFile SET DirProperty = 'MenuFolder' WHERE FileKey = 'MenuFolder'"
    # wixl puts this action in different places for different sources.
    query "UPDATE InstallExecuteSequence SET Sequence = 1501 WHERE Action = 'RemoveExistingProducts'"
    # wixl knows "deferred" alone. The bits: DLL 1, go on after a failure 64, rollback 256, commit 512, in script 1024, as system 2048.
    for name in $(actions_of rollback); do query "UPDATE CustomAction SET Type = 3393 WHERE Action = '$name'"; done
    for name in $(actions_of commit); do query "UPDATE CustomAction SET Type = 3649 WHERE Action = '$name'"; done
    query "UPDATE Property SET Value = 'WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED;OTHERPACKAGE;DEVICELIBRARY'
        WHERE Property = 'SecureCustomProperties'"
    # A file without its version would never replace an older one. A file with its version needs no hash.
    for name in $(msiinfo export "$msi" File | tr -d '\r' | awk -F'\t' '$3 ~ /\.(dll|exe)$/ { print $1 }'); do
        query "UPDATE File SET Version = '$version.0', Language = '1033' WHERE File = '$name'"
        query "DELETE FROM MsiFileHash WHERE File_ = '$name'"
    done
    msibuild "$msi" "${queries[@]}"
}

# Sets the package's own identifier and times, which wixl takes from chance and the clock.
summarise() {
    local contents time
    contents=$(guid_of "$version $(find . -type f | LC_ALL=C sort | xargs sha256sum "$source_file" | cut -d' ' -f1)")
    time=$(TZ=UTC date -r quelta.exe '+%Y/%m/%d %H:%M:%S')
    msiinfo export "$msi" _SummaryInformation |
        sed -E "s|^(9\t).*|\1{$contents}\r|; s|^(1[23]\t).*|\1$time\r|" >summary.idt
    msibuild "$msi" -i summary.idt
    rm summary.idt
}

rm -f "$msi"
cd "$folder"
# wixl complains of each attribute that it does not know.
complaints=$(wixl -a x64 -D Wixl=yes -D Kind="$kind" -D Version="$version" -D ProductCode="$(guid_of "Quelta $kind $version")" \
    -o "$msi" "$source_file" 2>&1) || true
[[ -s $msi ]] || {
    printf '%s\n' "$complaints" >&2
    exit 1
}
complete
summarise
