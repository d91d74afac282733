#!/usr/bin/env bash
# quelta-sign against openssl: each reads what the other has made, and refuses what was changed. quelta_sign.sh BIN SHARED
set -euo pipefail

bin=$1
shared=$2
pin=135790
key='HKLM\Software\Microsoft\Cryptography\Defaults\Provider\Quelta Cryptographic Provider CSP'
work=$(mktemp -d "$(dirname "$shared")/sign.XXXXXX")
cp -r "$shared/token" "$work/token"
export QUELTA_TOKEN_DIR=$work/token
cd "$work"

# The prefix may have the provider registered already, from another build.
clean_up() {
    wine reg delete "$key" /f >/dev/null 2>&1 || true
    [[ ! -e before.reg ]] || wine regedit /S before.reg
    cd / && rm -rf "$work"
}
wine reg query "$key" >/dev/null 2>&1 && wine regedit /E before.reg "$key"
trap clean_up EXIT

register() {
    local module
    module=$(winepath -w "$bin/QueltaCSP.dll")
    cat >provider.reg <<END
Windows Registry Editor Version 5.00

[${key/HKLM/HKEY_LOCAL_MACHINE}]
"Image Path"="${module//\\/\\\\}"
"Type"=dword:00000001
"Signature"=hex:00,00,00,00
END
    wine regedit /S provider.reg
}

fail() {
    echo "$*"
    exit 1
}

tool() {
    wine "$bin/quelta-sign.exe" "$@" >output 2>&1 </dev/null || fail "quelta-sign $* failed: $(<output)"
}

refuses() {
    local status=0
    wine "$bin/quelta-sign.exe" "$@" >output 2>&1 </dev/null || status=$?
    [[ $status -eq 1 && $(wc -l <output) -eq 1 ]] || fail "quelta-sign $* is not refused in one line ($status): $(<output)"
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

register
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
        cmp back data || fail "quelta-sign decrypts something else: $provider $padding"
    done
done
head -c -5 message >damaged
refuses decrypt damaged -o none --pin "$pin"
[[ ! -e none ]] || fail "a refused message leaves a file"
