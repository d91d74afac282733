#!/usr/bin/env bash
# make_shared.sh BIN FOLDER: makes the token with which all end-to-end tests begin, once for each build. BIN has the built programs.
# openssl makes the keys, so that openssl has them, too. FOLDER then has
#   NAME.pem, NAME.pub.pem, NAME.id    a key, its public half, its name on the token
#   NAME.root.pem, NAME.leaf.pem       root and leaf of the chain of a key that has certificates
#   token/                             the token
set -euo pipefail

softtoken=$1/../softtoken
folder=$2
[[ ! $folder/complete -nt $0 || ! $folder/complete -nt $softtoken/quelta-token.exe ||
    ! $folder/complete -nt $softtoken/QueltaDSCLibrary.dll ]] || exit 0
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"

token() {
    wine "$softtoken/quelta-token.exe" --dir token "$@" </dev/null
}

token init --pin 135790 --attempts 3 >log
for key in rsa1024 rsa2048 rsa3072 rsa4096 p256 p384 p521; do
    case $key in
    rsa*) openssl genpkey -quiet -algorithm RSA -pkeyopt "rsa_keygen_bits:${key#rsa}" -out "$key.pem" ;;
    *) openssl genpkey -quiet -algorithm EC -pkeyopt "ec_paramgen_curve:P-${key#p}" -out "$key.pem" ;;
    esac
    openssl pkey -in "$key.pem" -pubout -out "$key.pub.pem"
    token import "$key.pem" --label "$key" >"$key.id"
done
for key in rsa2048 rsa4096 p256; do
    token cert "$key" --subject "CN=$key of the tests" >log
    for part in root leaf; do
        token cert "$key" --export "$part" --out "$key.$part.pem"
    done
done
touch complete
