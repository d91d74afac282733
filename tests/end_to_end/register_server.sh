#!/usr/bin/env bash
# register_server.sh BIN: regsvr32 registers and unregisters the built module, each twice. The module's own log must say the same.
set -euo pipefail

work=$(mktemp -d "$1/../register.XXXXXX")
level='HKLM\Software\Oskvar\Quelta'
old_level=$(wine reg query "$level" /v logLevel 2>/dev/null | tr -d '\r' | grep -oE '0x[0-9a-f]+' || true)

set_level() {
    wine reg add "$level" /v logLevel /t REG_DWORD /d "$1" /f >/dev/null
}

clean_up() {
    rm -rf "$work"
    if [[ -n $old_level ]]; then set_level "$old_level"; else wine reg delete "$level" /v logLevel /f >/dev/null; fi
}
trap clean_up EXIT

set_level 3
mkdir -p "$work/Oskvar/regsvr32"
# Wine gives every program that is started from outside the temporary folder of its own registry.
printf '@set TMP=%s\r\n@set TEMP=%s\r\n@regsvr32 %%* "%s"\r\n' "$(winepath -w "$work")" "$(winepath -w "$work")" \
    "$(winepath -w "$1/QueltaCSP.dll")" >"$work/run.bat"
for undo in "" "" /u /u; do
    wine cmd /c "$(winepath -w "$work/run.bat")" /s $undo
done
for line in 'DllRegisterServer: KSP registered successfully' 'DllUnregisterServer: KSP unregistered successfully'; do
    [[ $(cat "$work"/Oskvar/regsvr32/*.LOG | grep -c "$line") -eq 2 ]] || {
        echo "not twice in the log: $line"
        cat "$work"/Oskvar/regsvr32/*.LOG
        exit 1
    }
done
