#!/usr/bin/env bash
# quelta against openssl: each reads what the other has made, and refuses what was changed. quelta.sh BIN SHARED
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

fail() {
    echo "$*"
    exit 1
}

clean_up() {
    cd / && rm -rf "$work"
}
trap clean_up EXIT

# The prefix may have the provider registered already, from another build: it gets that back.
restore() {
    wine reg delete "$provider_key" /f >/dev/null 2>&1 || true
    [[ ! -e before.reg ]] || wine regedit /S before.reg
    clean_up
}
if wine reg query "$provider_key" >/dev/null 2>&1; then
    wine regedit /E before.reg "$provider_key"
    [[ -s before.reg ]] || fail "no copy of the provider's registration could be made, so it is left as it is"
fi
trap restore EXIT

tool() {
    wine "$bin/quelta.exe" "$@" >output 2>&1 </dev/null || fail "quelta $* failed: $(<output)"
}

refuses() {
    local status=0
    wine "$bin/quelta.exe" "$@" >output 2>&1 </dev/null || status=$?
    [[ $status -eq 1 && $(wc -l <output) -eq 1 ]] || fail "quelta $* is not refused in one line ($status): $(<output)"
}

id_of() {
    tr -d '\r\n' <"$shared/$1.id"
}

openssl_verifies() {
    openssl cms -verify -binary -inform DER -purpose any -CAfile "$shared/$1.root.pem" -in "$2" -content "$3" -out /dev/null 2>output
}

# sign_and_verify PROVIDER KEY HASH
sign_and_verify() {
    rm -f signature
    tool sign data -o signature --provider "$1" --container "$(id_of "$2")" --pin "$pin" --hash "$3"
    openssl_verifies "$2" signature data || fail "openssl refuses the signature of $*: $(<output)"
    ! openssl_verifies "$2" signature changed || fail "openssl accepts a changed file: $*"
    tool verify signature data --root "$shared/$2.root.pem"
    refuses verify signature changed --root "$shared/$2.root.pem"
}

registration_of "$(winepath -w "$bin/QueltaCSP.dll")" >provider.reg
wine regedit /S provider.reg
printf 'one line\r\nanother\n' >data
{
    cat data
    echo
} >changed

sign_and_verify csp rsa2048 sha256
refuses verify signature data --root "$shared/rsa4096.root.pem"
sign_and_verify csp rsa4096 sha512
sign_and_verify ksp rsa2048 sha1
sign_and_verify ksp rsa4096 sha384
sign_and_verify ksp p256 sha256
refuses sign data -o wrong-pin --container "$(id_of rsa2048)" --pin 000000
[[ ! -e wrong-pin ]] || fail "a refused signature leaves a file"

openssl cms -sign -binary -in data -signer "$shared/rsa2048.leaf.pem" -inkey "$shared/rsa2048.pem" -outform DER -out theirs
tool verify theirs data
refuses verify theirs changed

tool encrypt data -o message --cert "$shared/rsa4096.leaf.pem"
openssl cms -decrypt -binary -inform DER -in message -recip "$shared/rsa4096.leaf.pem" -inkey "$shared/rsa4096.pem" -out back
cmp back data || fail "openssl decrypts something else"
for provider in csp ksp; do
    for padding in pkcs1 oaep; do
        openssl cms -encrypt -binary -aes256 -in data -outform DER -out message -recip "$shared/rsa2048.leaf.pem" \
            -keyopt "rsa_padding_mode:$padding"
        rm -f back
        tool decrypt message -o back --provider "$provider" --pin "$pin"
        cmp back data || fail "quelta decrypts something else: $provider $padding"
    done
done
head -c -5 message >damaged
refuses decrypt damaged -o none --pin "$pin"
[[ ! -e none ]] || fail "a refused message leaves a file"
