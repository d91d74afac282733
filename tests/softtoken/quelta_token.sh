#!/usr/bin/env bash
# quelta-token against openssl: it reads the key files that openssl writes, and openssl its certificates and keys; what it refuses, it
# refuses in one line. quelta_token.sh BIN
set -euo pipefail

bin=$1
work=$(mktemp -d "$bin/../token.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
export QUELTA_TOKEN_DIR=$work/token
password=(--password sesam)
protected=(-passout pass:sesam)

fail() {
    echo "$*: $(cat output errors)"
    exit 1
}

token() {
    wine "$bin/../softtoken/quelta-token.exe" "$@" >output 2>errors </dev/null || fail "quelta-token $*"
}

# refuses TEXT ARGUMENT...: with a failure whose line holds the text
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
    openssl pkcs8 -topk8 -in $kind.pem -v2 aes-256-cbc -v2prf hmacWithSHA512 "${protected[@]}" -out $kind.aes
    openssl pkcs8 -topk8 -in $kind.pem -v2 des3 "${protected[@]}" -out $kind.des3
    openssl req -x509 -new -key $kind.pem -subj "/CN=$kind of openssl" -days 30 -out $kind.crt
    p12=(openssl pkcs12 -export -inkey "$kind.pem" -in "$kind.crt" -name friendly)
    "${p12[@]}" "${protected[@]}" -out $kind.p12
    "${p12[@]}" "${protected[@]}" -out $kind.p12-des3 -keypbe PBE-SHA1-3DES -certpbe PBE-SHA1-3DES -macalg sha1
    "${p12[@]}" -passout pass: -out $kind.p12-empty
    "${p12[@]}" "${protected[@]}" -out $kind.p12-plain -keypbe NONE -certpbe NONE
    token import $kind.pem --label $kind
    id=$(<output)
    token pubkey "$id"
    cmp output <(openssl pkey -in $kind.pem -pubout) || fail "another public key"
    # A key that is there already keeps its identifier.
    token import $kind.{old,old-der,der,aes,des3,p12,p12-des3,p12-plain} "${password[@]}"
    [[ $(sort -u output) == "$id" && $(wc -l <output) -eq 8 ]] || fail "$kind: other keys out of other forms"
    token import $kind.p12-empty --password ""
    token delete "$id"
done
refuses "the password is wrong" import rsa.p12 --password other
refuses "the password is wrong" import ec.aes --password other
# Nothing in it is encrypted: its message code alone tells.
refuses "the password is wrong" import rsa.p12-plain --password other
refuses "--password" import rsa.p12
openssl rsa -in rsa.pem -traditional -aes128 "${protected[@]}" -out rsa.old-encrypted 2>/dev/null
refuses "openssl pkcs8" import rsa.old-encrypted "${password[@]}"
head -c 700 rsa.der >rsa.cut
refuses "damaged" import rsa.cut
openssl pkcs12 -export -inkey rsa.pem -in rsa.crt "${protected[@]}" -out rsa.rc2 -legacy -certpbe PBE-SHA1-RC2-40
refuses "write it anew" import rsa.rc2 "${password[@]}"

# A PKCS#12 file's own name and certificate, as the list shows them, until the certificate and then the key is deleted.
token import ec.p12 "${password[@]}"
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

# Chains that openssl verifies, with the names as they were given.
while read -r type usage purpose; do
    token keygen --type "$type" --usage "$usage" --label "$type"
    token cert "$type" --subject 'CN=Ada Müller, O="Example, Inc", C=IN' --root "CN=Root of $type"
    token pubkey "$type" --out pub
    for part in leaf issuing root; do
        token cert "$type" --export $part --out $part
    done
    openssl verify -x509_strict -purpose "$purpose" -CAfile root -untrusted issuing leaf >output 2>&1 || fail "$type"
    openssl x509 -in leaf -noout -subject -nameopt utf8,sep_comma_plus_space -pubkey >output
    cmp output <(echo 'subject=CN=Ada Müller, O=Example, Inc, C=IN' && cat pub) || fail "another name or key"
done <<'END'
rsa2048 both smimesign
rsa1024 exchange smimeencrypt
p256 sign smimesign
END

# What is wrong with a PIN or a state costs nothing and quotes nothing.
refuses "ASCII" init --force --pin 'päss'
refuses "ASCII" pin change --new 'päss'
refuses "4 to 63" pin change --new 123
token pin status
[[ $(<output) == "2 of 2 attempts left" ]] || fail "an attempt is lost"
for state in ok mismatch; do
    [[ $state == ok ]] || token clock $state
    token clock status
    [[ $(<output) == "$state" ]] || fail "the clock is not $state"
done
token import rsa.pem
secret=$(grep -oE '"privateKey": "[0-9A-F]{20}' token/token.json | tail -c 21)
mkdir damaged
for size in 900 1000 1500 2000 2500; do
    head -c $size token/token.json >damaged/token.json
    refuses "token.json" --dir damaged list
    ! grep -qE "$secret|[0-9A-F]{32}" errors || fail "a damaged token shows what it holds"
done
