#!/usr/bin/env bash
# Signs a file with a key on a software token, and verifies the signature with openssl.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/scripts/setup.sh"

if [[ ${1-} == -* || $# -gt 1 ]]; then
    say "Usage: ./demo.sh [FILE]"
    say "Builds the provider, makes a software token, signs FILE (default: README.md) with its key and verifies the signature"
    say "with openssl. Shows that a changed copy is refused. Encrypts and decrypts FILE. All results are in build/demo."
    [[ ${1-} == --help || ${1-} == -h ]] && exit 0 || exit 2
fi

file=$(realpath -- "${1-$root/README.md}")
[[ -f $file && -r $file ]] || die "$file is no file that can be read: name the one to sign, as in ./demo.sh README.md"

demo=$build/demo
name=$(basename -- "$file")
pin=24680

step() {
    say "* $*"
}

detail() {
    say "  $*"
}

# tool NAME ARGUMENT...: runs one of our programs under Wine. Shows its output only if it fails.
tool() {
    quietly "$1.log" wine "$(program "$1")" "${@:2}" || die "$1 ${2-} failed, and so did the demonstration"
}

make_token() {
    rm -rf "$demo"
    mkdir -p "$demo"
    QUELTA_TOKEN_DIR=$(windows_path "$demo/token")
    export QUELTA_TOKEN_DIR
    tool quelta-token init --pin "$pin"
    tool quelta-token keygen --type rsa2048 --usage both
    local key
    key=$(tr -d '\r' <"$logs/quelta-token.log" | grep -oE '[0-9A-F]{32}') || die "quelta-token keygen named no key"
    tool quelta-token cert "$key" --subject "CN=Demonstration Signer, O=Quelta software token"
    tool quelta-token cert --export root --out "$(windows_path "$demo/root.pem")"
}

# openssl_verifies SIGNATURE FILE: true if openssl accepts. Leaves the signer's certificate in $demo/signer.pem.
openssl_verifies() {
    openssl cms -verify -binary -inform DER -in "$1" -content "$2" -CAfile "$demo/root.pem" -purpose any \
        -signer "$demo/signer.pem" -out /dev/null >"$logs/openssl.log" 2>&1 </dev/null
}

sign() {
    local signature=$1
    shift
    tool quelta sign "$(windows_path "$file")" -o "$(windows_path "$signature")" --pin "$pin" "$@"
    detail "${signature#"$root"/}, $(stat -c %s "$signature") bytes"
}

verify() {
    openssl_verifies "$1" "$file" || {
        cat "$logs/openssl.log" >&2
        die "openssl refuses the signature"
    }
    openssl x509 -in "$demo/signer.pem" -noout -subject -issuer -nameopt oneline |
        sed 's/^subject=/  signed by /; s/^issuer=/  issued by /'
}

# Makes a copy with one byte changed in the middle; an empty file gets one byte.
tamper() {
    local copy=$1 middle byte
    cp -- "$file" "$copy"
    chmod u+w "$copy"
    middle=$(($(stat -c %s "$copy") / 2))
    byte=$(od -An -tu1 -j "$middle" -N 1 "$copy")
    # shellcheck disable=SC2059
    printf "\\x$(printf '%x' $((${byte:-0} ^ 1)))" |
        dd of="$copy" bs=1 seek="$middle" conv=notrunc status=none
}

# openssl must refuse because of the contents, and not, for example, because a file is missing.
must_be_refused() {
    ! openssl_verifies "$1" "$2" || die "openssl accepts a changed copy"
    grep -q 'content verify error' "$logs/openssl.log" || {
        cat "$logs/openssl.log" >&2
        die "openssl refuses the changed copy for another reason than its contents"
    }
    detail "refused: content verify error"
}

encrypt_and_back() {
    tool quelta encrypt "$(windows_path "$file")" -o "$(windows_path "$1")"
    detail "${1#"$root"/}, $(stat -c %s "$1") bytes"
    tool quelta decrypt "$(windows_path "$1")" -o "$(windows_path "$2")" --pin "$pin"
    cmp -s -- "$file" "$2" || die "what was decrypted is not what was encrypted"
    detail "${2#"$root"/}, the same as $name"
}

lock_checkout exclusive
need_packages "${build_packages[@]}"
start_display
prepare_prefix
build_preset mingw-release
use_build mingw-release
register_provider "$bin"

step "A software token with an RSA-2048 key and a certificate chain (it protects nothing; its PIN is $pin)"
make_token
detail "build/demo/token"

step "Signing $name through CryptoAPI, the key staying on the token"
sign "$demo/$name.p7s"

step "Verifying with openssl against the token's root certificate"
verify "$demo/$name.p7s"

step "Changing one byte in a copy"
tamper "$demo/tampered-$name"
must_be_refused "$demo/$name.p7s" "$demo/tampered-$name"
rm "$demo/tampered-$name"

step "Signing $name again, through key storage (CNG), and verifying it"
sign "$demo/$name.ksp.p7s" --provider ksp
verify "$demo/$name.ksp.p7s"

step "Encrypting $name to the token's certificate, and decrypting it on the token"
encrypt_and_back "$demo/$name.p7m" "$demo/decrypted-$name"

step "Done. To try next:"
detail "./demo.sh FILE                      another file"
detail "scripts/run quelta list             the keys on the token; --help tells the rest"
detail "scripts/run quelta sign FILE"
detail "                                    asks for the PIN in the provider's own dialog"
detail "./test.sh                           all tests"
