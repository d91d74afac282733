# shellcheck shell=bash
#
# The provider's registration for CryptoAPI. Scripts that register the provider source this file.
#
#   provider_key              variable: the provider's key in the registry
#   registration_of MODULE    prints a .reg file that registers the module at this Windows path

provider_header=$(dirname "${BASH_SOURCE[0]}")/../src/base/provider_name.h
provider_name=$(sed -n 's/^inline constexpr char providerName\[\] = "\(.*\)";$/\1/p' "$provider_header")
[[ -n $provider_name ]] || {
    echo "$provider_header names no provider" >&2
    exit 1
}
# The root key's full name: Wine's regedit silently refuses to export a key that begins with HKLM.
provider_key="HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Cryptography\\Defaults\\Provider\\$provider_name"

# Windows and Wine want the value Signature to exist. Neither looks at its content.
registration_of() {
    cat <<END
Windows Registry Editor Version 5.00

[$provider_key]
"Image Path"="${1//\\/\\\\}"
"Type"=dword:00000001
"Signature"=hex:00,00,00,00
END
}
