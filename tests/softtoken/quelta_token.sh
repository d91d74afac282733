#!/usr/bin/env bash
# quelta_token.sh BIN: tests quelta-token against openssl. Each reads what the other has made. A refusal is one line.
set -euo pipefail

bin=$1
work=$(mktemp -d "$bin/../token.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
export QUELTA_TOKEN_DIR=$work/token
protected=(-passout pass:sesam)

fail() {
    echo "$*: $(cat output errors)"
    exit 1
}

token() {
    wine "$bin/../softtoken/quelta-token.exe" "$@" >output 2>errors </dev/null || fail "quelta-token $*"
}

# refuses TEXT ARGUMENT...: runs quelta-token, which must fail with one line that has the text.
refuses() {
    ! wine "$bin/../softtoken/quelta-token.exe" "${@:2}" >output 2>errors </dev/null || fail "quelta-token ${*:2} is not refused"
    [[ ! -s output && $(wc -l <errors) -eq 1 && $(<errors) == *"$1"* ]] || fail "quelta-token ${*:2} is not refused in one line with \"$1\""
}

token init --pin 135790 --attempts 2

openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.pem
openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out ec.pem
for kind in rsa ec; do
    openssl pkey -in $kind.pem -traditional -out $kind.old
    openssl pkey -in $kind.pem -outform DER -out $kind.old-der
    openssl pkcs8 -topk8 -in $kind.pem -nocrypt -outform DER -out $kind.der
    openssl req -x509 -new -key $kind.pem -subj "/CN=$kind of openssl" -days 30 -out $kind.crt
    token import $kind.pem --label $kind
    id=$(<output)
    token pubkey "$id"
    cmp output <(openssl pkey -in $kind.pem -pubout) || fail "another public key"
    perl -ne 'print pack "H*", $1 if /"privateKey": "(\w+)"/' token/token.json >stored.der
    cmp <(openssl pkey -in stored.der) <(openssl pkey -in $kind.pem) || fail "another private key"
    # A key that is there already keeps its identifier.
    token import $kind.{old,old-der,der}
    [[ $(sort -u output) == "$id" && $(wc -l <output) -eq 3 ]] || fail "$kind: other keys out of other forms"

    # An encrypted file is refused with the command that converts it.
    openssl pkcs12 -export -inkey "$kind.pem" -in "$kind.crt" "${protected[@]}" -out $kind.p12
    openssl pkcs8 -topk8 -in $kind.pem "${protected[@]}" -out $kind.encrypted
    openssl pkcs8 -topk8 -in $kind.pem "${protected[@]}" -outform DER -out $kind.encrypted-der
    openssl pkey -in $kind.pem -traditional -aes128 "${protected[@]}" -out $kind.encrypted-old
    for file in $kind.{p12,encrypted,encrypted-der,encrypted-old}; do
        refuses "convert it first with: openssl" import "$file"
        command=$(tr -d '\r' <errors | grep -o 'openssl .*')
        rm -f key.pem
        # shellcheck disable=SC2086
        ${command/FILE/$file} -passin pass:sesam 2>/dev/null
        token import key.pem
        [[ $(<output) == "$id" ]] || fail "another key in what openssl made of $file"
    done
    token delete "$id"
done
head -c 700 rsa.der >rsa.cut
refuses "damaged" import rsa.cut
sed 's/^-----END.*//' rsa.pem >rsa.endless
refuses "no end" import rsa.endless

# The list shows a key and its certificate until they are deleted.
openssl pkcs12 -in ec.p12 -nodes -passin pass:sesam -out ec.all
token import ec.all --label friendly
token list --json
print=$(openssl x509 -in ec.crt -noout -fingerprint -sha1 | tr -d ':' | cut -d= -f2)
python3 - "$print" <<'END'
import json, sys
state = json.load(open("output"))
pair, certificate = state["keyPairs"][0], state["certificates"][0]
assert (pair["label"], pair["type"], pair["usage"], pair["certificate"]) == ("friendly", "p384", "sign", sys.argv[1]), pair
assert (certificate["subject"], certificate["keyId"]) == ("CN=ec of openssl", pair["id"]), certificate
assert (state["clock"], state["plugged"], state["pin"]) == ("ok", True, {"attempts": 2, "remaining": 2}), state
END
token list
grep -q "  friendly  *$print" output || fail "the table lacks the key"
token cert friendly --export leaf
cmp <(openssl x509 -in output -outform DER) <(openssl x509 -in ec.crt -outform DER) || fail "another certificate"
token delete "$print"
refuses "no certificate" cert friendly --export leaf
token import ec.crt
token delete friendly
token list --json
! grep -q "thumbprint" output || fail "a certificate stays behind its key"
refuses "no key and no certificate friendly" delete friendly

# A PIN or a state that is wrong costs nothing.
refuses "ASCII" init --force --pin 'päss'
refuses "4 to 63" pin change --new 123
refuses "pairs of the digits" import --aes 12345
refuses "pairs of the digits" import --aes 123G
token clock mismatch
token list
grep -q "clock mismatch, single sign-on off, PIN 2 of 2 attempts left" output || fail "another clock, or an attempt is lost"
token import rsa.pem
mkdir damaged
sed 's/"format": 2/"format": 1/' token/token.json >damaged/token.json
refuses "make a new token with" --dir damaged list
sed 's/"salt": "../"salt": "/' token/token.json >damaged/token.json
refuses "token.json" --dir damaged list
head -c 1000 token/token.json >damaged/token.json
refuses "token.json" --dir damaged list
! grep -qE '[0-9A-F]{32}' errors || fail "the message has a part of a key"
