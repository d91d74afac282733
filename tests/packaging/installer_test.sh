# shellcheck shell=bash
#
# The last part of package_test.sh, which sources this file when it has made the installers. Runs them in a Wine prefix of their own,
# and compares all files and the whole registry from step to step.
# shellcheck disable=SC2154

developer=$work/Quelta-developer-$version.msi product=$work/Quelta-$version.msi folder=$work/parts
here=$root/tests/packaging
export LC_ALL=C.UTF-8 WINEPREFIX=$work/prefix WINEARCH=win64 WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d" QUELTA_TOKEN_DIR=Z:${work//\//\\}\\token
unset DISPLAY WINEPATH
drive=$WINEPREFIX/drive_c
server=
# The status of msiexec if an installation is refused.
refused=1603

clean_up() {
    if [[ -n $server ]]; then
        wineserver -k || kill "$server" || true
        wait "$server" || true
    fi
    rm -rf "$work"
}
trap clean_up EXIT

windows() {
    wine "$@" </dev/null 2>/dev/null
}

seen_by_windows() {
    printf 'Z:%s' "${1//\//\\}"
}

# installer STATUS ARGUMENT...: runs msiexec, which must answer STATUS. Only the low byte of its number can be seen.
installer() {
    local wanted=$1 status=0
    shift
    windows msiexec "$@" /qn /l*v "$(seen_by_windows "$work/msi.log")" || status=$?
    [[ $status -eq $((wanted % 256)) ]] || {
        echo "msiexec $*: $status"
        tr -d '\0' <"$work/msi.log" | tail -n 30
        return 1
    }
}

# Prints the registry. Leaves out Wine's notes on displays, services and the machine's own stores; the place that a package last came
# from; empty keys of the list of components and of the user's stores, which opening makes; and the semicolons that Wine leaves in PATH.
registry() {
    local root
    for root in HKEY_LOCAL_MACHINE HKEY_CURRENT_USER; do
        windows regedit /E "$(seen_by_windows "$work/part.reg")" "$root"
        iconv -f utf-16 -t utf-8 "$work/part.reg" | tr -d '\r' | sed -e ':a; /\\$/ { N; s/\\\n *//; ba }' |
            sed -e ':b; s/^\("PATH"=.*\)3b,00,00,00$/\100,00/; tb' |
            awk 'BEGIN { RS = ""; FS = "\n" }
                /^\[HKEY_LOCAL_MACHINE\\(System\\CurrentControlSet\\(Enum|Hardware|Control\\(Video|Class|DeviceClasses|ServiceCurrent))|Hardware)/ { next }
                /^\[HKEY_LOCAL_MACHINE\\Software\\(Wow6432Node\\)?Microsoft\\SystemCertificates|^\[HKEY_CURRENT_USER\\Software\\Wine/ { next }
                /\\SourceList/ || NF == 1 && /\\Installer\\UserData\\|\\SystemCertificates/ { next }
                { for (i = 2; i <= NF; i++) print $1 " " $i; if (NF == 1) print }' | sort
    done
}

# state NAME: stores the state for a comparison. A shortcut's size depends on the day. Programs' logs belong to the user.
state() {
    (cd "$drive" && find . -path '*/Temp/Oskvar' -prune -o -name '*.lnk' -printf '%p\n' -o -printf '%p %y%s\n' | sed 's/ d[0-9]*$/ d/' | LC_ALL=C sort) >"$work/$1"
    registry >>"$work/$1"
}

same_state() {
    state now
    diff "$work/$1" "$work/now" | cut -c1-300
    [[ ${PIPESTATUS[0]} -eq 0 ]]
}

# Prints what an installation has added. Leaves out the notes of Windows Installer itself, sizes and the day.
added() {
    { diff "$work/$1" "$work/$2" || true; } | grep '^[<>]' |
        grep -vE '\\(Classes|CurrentVersion)\\Installer|/windows/Installer|"(InstallDate|InstallSource|ModifyPath|UninstallString|Version.*)"|=""' |
        sed -E "s/ [fd][0-9]*$//; s/\{[-0-9A-F]{36}\}/{PRODUCT}/; s/$version/VERSION/; s|(users/)[^/]*|\1USER|; s/hex\(2\):.*/.../"
}

adds_what_is_listed() {
    state installed
    added before installed >"$work/added"
    diff "$here/installed.txt" "$work/added"
}

make_prefix() {
    windows wineboot -i >"$work/output" || return 1
    wineserver -w
    setpriv --pdeathsig INT wineserver -f -p >/dev/null 2>&1 </dev/null &
    server=$!
    # Windows has this from the start, as other programs expect.
    mkdir -p "$drive/windows/Installer"
    windows regedit /S "$(seen_by_windows "$here/windows.reg")"
    windows cmd /c exit
}

# tool LINE: runs a line. The program is found by its name, on the path that a new program gets.
tool() {
    windows cmd /c "$1" | tr -d '\r'
}

make_token() {
    tool "quelta-token init --pin 1234" && tool "quelta-token keygen --type rsa2048 --label signer" &&
        tool "quelta-token cert signer --subject CN=Ada" && tool "quelta-token cert signer --export root" >"$work/root.pem"
}

signs_through() {
    echo "signed through $1" >"$work/letter"
    rm -f "$work/letter.p7s"
    tool "quelta sign $(seen_by_windows "$work/letter") -o $(seen_by_windows "$work/letter.p7s") --pin 1234 --provider $1"
    openssl cms -verify -binary -inform DER -in "$work/letter.p7s" -content "$work/letter" -CAfile "$work/root.pem" -purpose any \
        -out /dev/null
}

# Repairs as /famus does, by its properties: Wine's msiexec takes no product's code.
repairs() {
    rm "$drive/windows/system32/QueltaCSP.dll" "$drive/Program Files/Quelta/quelta.exe"
    windows reg delete 'HKLM\Software\Microsoft\Cryptography\Defaults\Provider\Quelta Cryptographic Provider CSP' /f
    installer 0 /i "$(seen_by_windows "$developer")" REINSTALL=ALL REINSTALLMODE=amus && same_state installed
}

# The older package has files of this version, and Wine removes no file that is newer than its package says.
make_older() {
    "$root/installer/make_msi.sh" developer 0.9.0 "$folder" "$work/older.msi"
    msibuild "$work/older.msi" -q "UPDATE File SET Version = '$version.0' WHERE Version = '0.9.0.0'"
}

publishes_at_logon() {
    windows reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Run' /v Quelta | grep 'Quelta\\quelta-publish.exe"'
}

ends_watchers() {
    windows cmd /c "quelta publish --watch" >"$work/watched" &
    sleep 3
    installer 0 /i "$(seen_by_windows "$developer")" REINSTALL=ALL && grep "ended for the installer" "$work/watched"
}

# row_of MSI TABLE BEGINNING-OF-ROW: prints the rows. It is for what only Windows obeys.
row_of() {
    msiinfo export "$1" "$2" | tr -d '\r' | grep "^$3"
}

# If a file is in use, Windows restarts nothing and ends no program. A file of the same version is replaced.
says_how_files_are_replaced() {
    local row
    for row in REBOOT$'\t'ReallySuppress MSIRESTARTMANAGERCONTROL$'\t'Disable REINSTALLMODE$'\t'amus; do
        row_of "$1" Property "$row\$" || return 1
    done
}

# WiX's validation takes the menu for a part of a user's profile. So only an advertised shortcut may stand there, and no component.
is_of_the_computer_alone() {
    ! row_of "$1" Component $'[^\t]*\t[^\t]*\t[A-Za-z]*MenuFolder\t' && row_of "$1" Shortcut $'Check\tMenuFolder\t.*\tCheck\tQuelta\t' &&
        row_of "$1" Property $'DISABLEADVTSHORTCUTS\t1' && row_of "$1" RemoveFile $'MenuFolder\tCheck\t\tMenuFolder'
}

one_entry_of_this_version() {
    registry | grep -E 'CurrentVersion\\Uninstall.*"DisplayVersion"' >"$work/entries"
    cat "$work/entries"
    [[ $(grep -c . "$work/entries") -eq 1 ]] && grep "\"$version\"" "$work/entries"
}

says() {
    tr -d '\0' <"$work/msi.log" | grep "$1"
}

# Adds an action at the very end that fails, since it finds no library to copy.
make_failing() {
    cp "$product" "$work/failing.msi"
    msibuild "$work/failing.msi" \
        -q "INSERT INTO CustomAction (Action, Type, Source, Target) VALUES ('Fail', 3073, 'Actions', 'CopyDeviceLibrary')" \
        -q "INSERT INTO InstallExecuteSequence (Action, Sequence) VALUES ('Fail', 6450)"
}

# Wine registers in name only. The module's own log tells that the registration was taken back.
unregisters_when_it_fails() {
    local status=0 logs=$work/rolled-back
    windows reg add 'HKLM\Software\Oskvar\Quelta' /v logLevel /t REG_DWORD /d 3 /f
    installer "$refused" /i "$(seen_by_windows "$work/failing.msi")" "$library" || status=1
    find "$drive" -path '*/Oskvar/msiexec/*.LOG' -exec cat {} + | grep -o 'KSP .*registered successfully' >"$logs" || status=1
    find "$drive" -depth -path '*/Oskvar*' -delete
    windows reg delete 'HKLM\Software\Oskvar' /f
    cat "$logs"
    [[ $status -eq 0 && $(tail -n 1 "$logs") == "KSP unregistered successfully" && $(wc -l <"$logs") -eq 2 ]]
}

# refuses_library PATH TEXT: PATH is one that Windows understands.
refuses_library() {
    installer "$refused" /i "$(seen_by_windows "$product")" "DEVICELIBRARY=$1" && says "Quelta: DEVICELIBRARY $2"
}

refuses_libraries() {
    local file
    echo "no DLL" >"$work/no.dll"
    # The first two bytes behind the signature name the processor.
    cp "$work/maker.dll" "$work/other.dll"
    printf '\x4c\x01' | dd of="$work/other.dll" bs=1 seek=$((0x84)) conv=notrunc status=none
    while IFS='|' read -r file text; do
        refuses_library "$file" "$text" || return 1
    done <<END
$(seen_by_windows "$work/none.dll")|names a file that is not there: .*none.dll
$(seen_by_windows "$work/no.dll")|names a file that is no DLL: .*no.dll
$(seen_by_windows "$work/other.dll")|names a DLL that is not 64-bit
$(seen_by_windows "$work/module.dll")|names a DLL that is no device library
$(seen_by_windows "$folder/softtoken/QueltaDSCLibrary.dll")|names a library that was not built with Visual C++
maker.dll|is no full path: maker.dll
Q:\\maker.dll|is on drive Q:, which Windows Installer's service does not have
END
}

takes_newer_library_and_back() {
    installer 0 /i "$(seen_by_windows "$product")" REINSTALL=ALL "DEVICELIBRARY=$(seen_by_windows "$work/newer.dll")" &&
        cmp "$work/newer.dll" "$in_system" && installer 0 /i "$(seen_by_windows "$product")" REINSTALL=ALL "$library"
}

# Wine undoes no repair, but it undoes an installation over a library of the installer's. The removal then shows that the library
# belongs to the installer again.
failed_replacement_is_undone() {
    installer "$refused" /i "$(seen_by_windows "$work/failing.msi")" "DEVICELIBRARY=$(seen_by_windows "$work/newer.dll")" &&
        cmp "$work/maker.dll" "$in_system" && [[ -z $(find "$drive/windows/system32" -name 'QueltaDSCLibrary.dll.*') ]]
}

leaves_what_somebody_put_there() {
    cp "$work/newer.dll" "$in_system"
    installer "$refused" /i "$(seen_by_windows "$product")" REINSTALL=ALL "$library" && says 'is not the file that this installer put there' &&
        installer 0 /x "$(seen_by_windows "$product")" && cmp "$work/newer.dll" "$in_system" && rm "$in_system"
}

library=DEVICELIBRARY=$(seen_by_windows "$work/maker.dll")
in_system=$drive/windows/system32/QueltaDSCLibrary.dll
make_prefix
state before

check "a file in use is replaced later, and one of the same version now" says_how_files_are_replaced "$product"
check "all of it is the computer's" is_of_the_computer_alone "$product"
check "the developer package is installed" installer 0 /i "$(seen_by_windows "$developer")"
check "and adds what is listed" adds_what_is_listed
check "a token is made with the installed tool" make_token
check "a signature through CryptoAPI" signs_through csp
check "a signature through key storage" signs_through ksp
check "what was deleted is repaired" repairs
check "the other package is refused beside it" installer "$refused" /i "$(seen_by_windows "$product")"
check "and nothing changes" same_state installed
check "its certificates are published" tool "quelta publish"
check "who watches the token is asked to end" ends_watchers
check "it is removed" installer 0 /x "$(seen_by_windows "$developer")"
check "and leaves nothing behind, no certificate either" same_state before

make_older
check "an older version is installed with its option" installer 0 /i "$(seen_by_windows "$work/older.msi")" ADDLOCAL=ALL
check "and publishes certificates at each logon" publishes_at_logon
check "it is upgraded" installer 0 /i "$(seen_by_windows "$developer")"
check "to one entry" one_entry_of_this_version
state upgraded
check "going back is refused" installer "$refused" /i "$(seen_by_windows "$work/older.msi")"
check "and nothing changes" same_state upgraded
check "the upgraded one is removed" installer 0 /x "$(seen_by_windows "$developer")"
check "and leaves nothing behind" same_state before

for change in REINSTALL=ALL REMOVE=Publishing; do
    check "$change is refused where this version is not installed" installer "$refused" /i "$(seen_by_windows "$product")" "$change" "$library"
done
check "a device library that is none is refused, with the reason" refuses_libraries
check "and nothing changes" same_state before
make_failing
check "a failure at the end takes the registration back" unregisters_when_it_fails
check "and everything else" same_state before
cp "$work/no.dll" "$in_system"
check "somebody else's library is not replaced" installer "$refused" /i "$(seen_by_windows "$product")" "$library"
check "by the developer package neither" installer "$refused" /i "$(seen_by_windows "$developer")"
check "but left as it is" cmp "$work/no.dll" "$in_system"
rm "$in_system"
check "the other package is installed" installer 0 /i "$(seen_by_windows "$product")" "$library"
check "with the device library" cmp "$work/maker.dll" "$in_system"
check "which is replaced by another one, and back" takes_newer_library_and_back
check "as it was" cmp "$work/maker.dll" "$in_system"
check "an upgrade removes the old one" installer 0 /x "$(seen_by_windows "$product")" UPGRADINGPRODUCTCODE=newer
check "but leaves the device library" cmp "$work/maker.dll" "$in_system"
check "a failed replacement of it is undone" failed_replacement_is_undone
check "the new one is installed" installer 0 /i "$(seen_by_windows "$product")"
check "and removed" installer 0 /x "$(seen_by_windows "$product")"
check "and leaves nothing behind" same_state before
check "it is installed once more" installer 0 /i "$(seen_by_windows "$product")" "$library"
check "another library in its place stays" leaves_what_somebody_put_there
check "and nothing else" same_state before
