#!/usr/bin/env bash
# Makes time_stamps/ anew: a signature of June 2020 whose certificate ended in June 2021, and tokens (RFC 3161) for it. Needs openssl
# and faketime (Debian: faketime).
set -euo pipefail
export TZ=UTC
out=$(dirname "$(realpath "$0")")/time_stamps
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
printf '%s\n' '[req]' distinguished_name=name '[name]' '[tsa]' default_tsa=it '[it]' serial=serial signer_digest=sha256 \
    default_policy=1.2.3 digests=sha256 >config

at() {
    faketime "$1" openssl "${@:2}"
}

# certificate NAME SUBJECT DAYS EXTENSION [ISSUER]
certificate() {
    at 2020-06-01 req -x509 -config config -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$1.key" -out "$1.pem" \
        -subj "/CN=$2" -days "$3" -addext "$4" ${5:+-CA "$5.pem" -CAkey "$5.key"} 2>log
}

# token NAME TIME DATA
token() {
    openssl ts -query -data "$3" -sha256 -cert -no_nonce -out query 2>log
    at "$2" ts -reply -config config -queryfile query -signer stamp.pem -inkey stamp.key -token_out -out "$1" 2>log
    openssl cms -cmsout -inform DER -in "$1" -outform PEM -out "$out/$1.pem"
}

for owner in signer authority; do
    certificate "${owner}_root" "Root of the $owner" 36500 basicConstraints=critical,CA:true
    cp "${owner}_root.pem" "$out"
done
certificate signer "Signer of 2020" 365 keyUsage=digitalSignature signer_root
for usage in stamp=critical,timeStamping not_critical=timeStamping not_alone=critical,timeStamping,emailProtection; do
    certificate "${usage%%=*}" "Authority of 2020" 730 "extendedKeyUsage=${usage#*=}" authority_root
done

printf 'signed content\n' >content
at '2020-06-15 10:00' cms -sign -binary -in content -signer signer.pem -inkey signer.key -outform PEM -out "$out/signature.pem"
openssl cms -cmsout -in "$out/signature.pem" -inform PEM -outform DER -out signature
last=$(openssl asn1parse -inform DER -in signature | sed -n '$s/:.*//p')
openssl asn1parse -inform DER -in signature -strparse "$last" -noout -out value
token stamp '2020-07-01 10:00' value
token late '2021-07-01 10:00' value
token of_another '2020-07-01 10:00' content
# What openssl refuses to make a time stamp with: the same content, signed as any other.
openssl cms -verify -noverify -inform DER -in stamp -out info 2>log
for other in not_critical not_alone; do
    at '2020-07-01 10:00' cms -sign -nodetach -binary -in info -econtent_type 1.2.840.113549.1.9.16.1.4 -signer "$other.pem" \
        -inkey "$other.key" -outform PEM -out "$out/$other.pem"
done
