#!/usr/bin/env bash
# quelta-sign against openssl: each reads what the other has made, and refuses what was changed. quelta_sign.sh BIN SHARED
set -euo pipefail

bin=$1
shared=$2
pin=135790
# shellcheck source=scripts/provider.sh
source "$(dirname "$0")/../../scripts/provider.sh"
work=$(mktemp -d "$(dirname "$shared")/sign.XXXXXX")
cp -r "$shared/token" "$work/token"
export QUELTA_TOKEN_DIR=$work/token
cd "$work"
wine reg query "$provider_key" >/dev/null 2>&1 && wine regedit /E before.reg "$provider_key" && [[ -s before.reg ]]

# The prefix may have the provider registered already, from another build: it gets that back.
clean_up() {
    wine reg delete "$provider_key" /f >/dev/null 2>&1 || true
    [[ ! -e before.reg ]] || wine regedit /S before.reg
    cd / && rm -rf "$work"
}
trap clean_up EXIT

# expect STATUS COMMAND...: what it says is shown if it ends otherwise; a refusal is one line of quelta-sign's
expect() {
    local wanted=$1 status=0
    shift
    if [[ $1 == openssl ]]; then "$@" >output 2>&1 || status=4; else wine "$bin/quelta-sign.exe" "$@" >output 2>&1 </dev/null || status=$?; fi
    [[ $status -eq $wanted && ($status -ne 1 || $(wc -l <output) -eq 1) ]] || {
        echo "$status in place of $wanted from $*: $(<output)"
        exit 1
    }
}

id_of() {
    tr -d '\r\n' <"$shared/$1.id"
}

registration_of "$(winepath -w "$bin/QueltaCSP.dll")" >provider.reg
wine regedit /S provider.reg
printf 'one line\r\nanother\n' >data
echo | cat data - >changed

while read -r provider key hash; do
    expect 0 sign data -o signature --provider "$provider" --container "$(id_of "$key")" --pin "$pin" --hash "$hash"
    openssl=(openssl cms -verify -binary -inform DER -purpose any -CAfile "$shared/$key.root.pem" -in signature -out /dev/null)
    expect 0 "${openssl[@]}" -content data
    expect 4 "${openssl[@]}" -content changed
    expect 0 verify signature data --root "$shared/$key.root.pem"
    expect 1 verify signature changed --root "$shared/$key.root.pem"
    [[ $key == rsa4096 ]] || expect 1 verify signature data --root "$shared/rsa4096.root.pem"
done <<END
csp rsa2048 sha256
csp rsa4096 sha512
ksp rsa2048 sha1
ksp rsa4096 sha384
ksp p256 sha256
END
expect 1 sign data -o none --container "$(id_of rsa2048)" --pin 000000

openssl cms -sign -binary -in data -signer "$shared/rsa2048.leaf.pem" -inkey "$shared/rsa2048.pem" -outform DER -out theirs
expect 0 verify theirs data
expect 1 verify theirs changed

expect 0 encrypt data -o message --cert "$shared/rsa4096.leaf.pem"
openssl cms -decrypt -binary -inform DER -in message -recip "$shared/rsa4096.leaf.pem" -inkey "$shared/rsa4096.pem" | cmp - data
for provider in csp ksp; do
    for padding in pkcs1 oaep; do
        openssl cms -encrypt -binary -aes256 -in data -outform DER -out message -recip "$shared/rsa2048.leaf.pem" \
            -keyopt "rsa_padding_mode:$padding"
        expect 0 decrypt message -o back --provider "$provider" --pin "$pin"
        cmp back data
        rm back
    done
done
head -c -5 message >damaged
expect 1 decrypt damaged -o none --pin "$pin"
[[ ! -e none ]]
