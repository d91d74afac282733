#!/usr/bin/env bash
# regsvr32 registers and unregisters the built module, each twice in a row, and the module's own log agrees. register_server.sh BIN
set -euo pipefail

bin=$1
work=$(mktemp -d "$bin/../register.XXXXXX")
level='HKLM\Software\Oskvar\Quelta'
old_level=$(wine reg query "$level" /v logLevel 2>/dev/null | tr -d '\r' | grep -oE '0x[0-9a-f]+' || true)

clean_up() {
    rm -rf "$work"
    if [[ -n $old_level ]]; then
        wine reg add "$level" /v logLevel /t REG_DWORD /d "$old_level" /f
    else
        wine reg delete "$level" /v logLevel /f
    fi >/dev/null
}
trap clean_up EXIT

expect_log() {
    local found
    found=$(cat "$work"/Oskvar/regsvr32/*.LOG | grep -c "$1" || true)
    [[ $found -eq 2 ]] || {
        echo "$found times in the log in place of 2: $1"
        cat "$work"/Oskvar/regsvr32/*.LOG
        exit 1
    }
}

wine reg add "$level" /v logLevel /t REG_DWORD /d 3 /f >/dev/null
mkdir -p "$work/Oskvar/regsvr32"
log_folder=$(winepath -w "$work")
module=$(winepath -w "$bin/QueltaCSP.dll")
# Wine gives every program that is started from outside the temporary folder of its own registry.
printf '@set TMP=%s\r\n@set TEMP=%s\r\n@regsvr32 %%* "%s"\r\n' "$log_folder" "$log_folder" "$module" >"$work/run.bat"
for arguments in "/s" "/s" "/s /u" "/s /u"; do
    # shellcheck disable=SC2086
    wine cmd /c "$log_folder\\run.bat" $arguments
done
expect_log 'DllRegisterServer: KSP registered successfully'
expect_log 'DllUnregisterServer: KSP unregistered successfully'
