# shellcheck shell=bash
#
# How CryptoAPI knows the provider, for scripts that register it; sourced.
#
#   provider_key              its key in the registry
#   registration_of MODULE    the text of a .reg file that registers the module at this Windows path

provider_header=$(dirname "${BASH_SOURCE[0]}")/../src/base/provider_name.h
provider_name=$(sed -n 's/^inline constexpr char providerName\[\] = "\(.*\)";$/\1/p' "$provider_header")
[[ -n $provider_name ]] || {
    echo "$provider_header names no provider" >&2
    exit 1
}
# In full: Wine's regedit refuses to export a key that begins with HKLM, and says nothing of it.
provider_key="HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Cryptography\\Defaults\\Provider\\$provider_name"

# Windows wants a signature of the module there, and Wine that the value exists.
registration_of() {
    cat <<END
Windows Registry Editor Version 5.00

[$provider_key]
"Image Path"="${1//\\/\\\\}"
"Type"=dword:00000001
"Signature"=hex:00,00,00,00
END
}
