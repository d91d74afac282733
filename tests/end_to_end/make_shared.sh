#!/usr/bin/env bash
# Makes what all end-to-end tests start from, once for a build: a token whose keys openssl has made, so that openssl has
# them too. make_shared.sh BIN FOLDER: the built programs; where to. Leaves there
#   NAME.pem, NAME.pub.pem, NAME.id    a key, its public half, its name on the token
#   NAME.root.pem, NAME.leaf.pem       root and leaf of the chain of a key that has certificates
#   token/                             the token
set -euo pipefail

bin=$1
folder=$2
pin=135790

up_to_date() {
    local source
    for source in "$0" "$bin/../softtoken/quelta-token.exe" "$bin/../softtoken/QueltaDSCLibrary.dll"; do
        [[ $folder/complete -nt $source ]] || return 1
    done
}

token() {
    wine "$bin/../softtoken/quelta-token.exe" --dir "$folder/token" "$@" </dev/null
}

make_key() {
    local name=$1
    shift
    openssl genpkey -quiet "$@" -out "$folder/$name.pem"
    openssl pkey -in "$folder/$name.pem" -pubout -out "$folder/$name.pub.pem"
    token import "$folder/$name.pem" --label "$name" >"$folder/$name.id"
}

certify() {
    local part
    token cert "$1" --subject "CN=$1 of the tests" >"$folder/log"
    for part in root leaf; do
        token cert "$1" --export "$part" --out "$folder/$1.$part.pem"
    done
}

! up_to_date || exit 0
rm -rf "$folder"
mkdir -p "$folder"
token init --pin "$pin" --attempts 3 >"$folder/log"
for bits in 1024 2048 3072 4096; do
    make_key "rsa$bits" -algorithm RSA -pkeyopt "rsa_keygen_bits:$bits"
done
for curve in 256 384 521; do
    make_key "p$curve" -algorithm EC -pkeyopt "ec_paramgen_curve:P-$curve"
done
for name in rsa2048 rsa4096 p256; do
    certify "$name"
done
touch "$folder/complete"
