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
    wine "$bin/quelta.exe" unpublish >/dev/null 2>&1 </dev/null || true
    wine reg delete "$provider_key" /f >/dev/null 2>&1 || true
    [[ ! -e before.reg ]] || wine regedit /S before.reg
    clean_up
}
if wine reg query "$provider_key" >/dev/null 2>&1; then
    wine regedit /E before.reg "$provider_key"
    [[ -s before.reg ]] || fail "no copy of the provider's registration could be made, so it is left as it is"
fi
trap restore EXIT

run() {
    wine "$bin/quelta.exe" "$@" 2>errors </dev/null
}

tool() {
    run "$@" >output || fail "quelta $* failed: $(<errors)"
}

# answers STATUS COMMAND...
answers() {
    local status=0
    run "${@:2}" >output || status=$?
    [[ $status -eq $1 ]] || fail "quelta ${*:2} answers $status and not $1: $(<errors)"
}

# In one line, and nothing on standard output.
refuses() {
    answers 1 "$@"
    [[ $(wc -l <errors) -eq 1 && ! -s output ]] || fail "quelta $* is not refused in one line: $(<errors)"
}

says() {
    grep -q -- "$1" output errors || fail "it does not say \"$1\": $(cat output errors)"
}

says_not() {
    ! grep -q -- "$1" output errors || fail "it says \"$1\": $(cat output errors)"
}

token() {
    wine "$bin/../softtoken/quelta-token.exe" "$@" >log 2>&1 </dev/null || fail "quelta-token $* failed: $(<log)"
}

id_of() {
    tr -d '\r\n' <"$shared/$1.id"
}

# openssl_verifies KEY SIGNATURE [ARGUMENT]...
openssl_verifies() {
    openssl cms -verify -binary -cades -inform DER -purpose any -CAfile "$shared/$1.root.pem" -in "$2" "${@:3}" 2>errors
}

# As openssl shows the algorithms of the signers: "sha384", "ecdsa-with-SHA384".
hashes_named_in() {
    openssl cms -cmsout -print -inform DER -in "$1" | sed -n '/signerInfos:/,$s/.*lgorithm: .*\(sha[0-9]*\).*/\L\1/Ip' | sort -u
}

# sign_and_verify PROVIDER KEY HASH
sign_and_verify() {
    rm -f signature
    tool sign data -o signature --provider "$1" --key "$(id_of "$2")" --pin "$pin" --hash "$3"
    openssl_verifies "$2" signature -content data -out back || fail "openssl refuses the signature of $*: $(<errors)"
    [[ $(hashes_named_in signature) == "$3" ]] || fail "the signature of $* names another hash"
    ! openssl_verifies "$2" signature -content changed -out back || fail "openssl accepts a changed file: $*"
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

tool list
says "rsa4096 of the tests .* RSA-4096 *sign,decrypt *csp,ksp"
says "p256 of the tests .* P-256 *sign *ksp"
answers 2 sign data --provider smartcard
says "csp (CryptoAPI) or ksp"
for command in "" list sign verify encrypt decrypt publish unpublish check; do
    # shellcheck disable=SC2086
    tool $command --help
    ! grep -E '.{80}' output || fail "the help of quelta $command has lines that are too long"
done
! wine "$bin/quelta.exe" list >/dev/full 2>errors </dev/null || fail "a full disk is no failure"

sign_and_verify csp rsa2048 sha256
refuses verify signature data --root "$shared/rsa4096.root.pem"
answers 3 verify signature data
says "NOT CHECKED"
says "^good signature of data, but .* NOT CHECKED"
refuses verify signature data --root "$shared/rsa2048.root.pem" --at 2001-01-01
says "certificate of CN=rsa2048 of the tests is not valid before"
answers 1 verify --json signature changed
says '"good": false'
answers 1 verify --json absent data
says '"error": .*no such file'
refuses verify data data
says "no CMS"
sign_and_verify csp rsa4096 sha512
sign_and_verify ksp rsa2048 sha1
sign_and_verify ksp rsa4096 sha384
sign_and_verify ksp p256 sha384
refuses sign data -o wrong-pin --key rsa2048 --pin 000000
says "the PIN is wrong; another wrong one may lock the token .*log says: .* failed"
refuses sign data -o wrong-pin --key rsa2048 --pin ""
says "the PIN is empty"
[[ ! -e wrong-pin ]] || fail "a refused signature leaves a file"
refuses sign data --key "of the tests" --pin "$pin"
says "fits several keys"

# Several files for one PIN, names that nobody can type, one more signature by another key, and streams.
cp data "bläu 1"
printf '%s\n' "$pin" | wine "$bin/quelta.exe" sign data "bläu 1" --key rsa2048 --pin-stdin >output 2>errors || fail "$(<errors)"
says "data.p7s$"
tool sign data --key rsa2048 --pin "$pin"
says "data.p7s, in place of the one that was there"
tool sign "bläu 1" --add --key "p256 of the tests" --pin "$pin"
cat "$shared"/{rsa2048,p256}.root.pem >both.root.pem
tool verify --root "$shared/rsa2048.root.pem" --root "$shared/p256.root.pem" "bläu 1.p7s" "bläu 1"
says "CN=p256 of the tests"
openssl cms -verify -binary -cades -inform DER -purpose any -CAfile both.root.pem -in "bläu 1.p7s" -content data -out back 2>errors ||
    fail "openssl refuses two signers: $(<errors)"
refuses sign changed -o data.p7s --add --pin "$pin"
wine "$bin/quelta.exe" sign - --attached --key rsa2048 --pin "$pin" <data >attached 2>errors || fail "$(<errors)"
openssl_verifies rsa2048 attached -out back || fail "openssl refuses the attached signature: $(<errors)"
cmp back data
tool verify attached -o content --root "$shared/rsa2048.root.pem"
cmp content data

# How often a process has the PIN in its memory: as bytes, and as UTF-16.
copies_of_pin() {
    # shellcheck disable=SC2016
    perl -e 'no warnings; my ($process, $pin) = @ARGV;
        my ($narrow, $wide) = (qr/\Q$pin/, join("\0", split //, $pin));
        open my $maps, "<", "/proc/$process/maps"; open my $memory, "<:raw", "/proc/$process/mem";
        while (<$maps>) {
            /^(\w+)-(\w+) rw/ and sysseek($memory, hex $1, 0) and sysread($memory, my $part, hex($2) - hex($1)) or next;
            $bytes++ while $part =~ /$narrow/g; $units++ while $part =~ /\Q$wide/g;
        }
        print 0 + $bytes, " ", 0 + $units' "$1" "$pin"
}
mkfifo pipe
wine "$bin/quelta.exe" sign - --attached --key rsa2048 --pin-stdin <pipe >attached 2>errors &
signer=$!
exec 3>pipe
printf '%s\n' "$pin" >&3
# The message begins when the PIN was given, and goes on when there is content.
for ((i = 0; i < 300 && $(stat -c %s attached) == 0; ++i)); do sleep 0.1; done
[[ -s attached ]] || fail "signing does not begin: $(<errors)"
[[ $(copies_of_pin "$signer") == "1 0" ]] || fail "beside the provider's own there are copies of the PIN: $(copies_of_pin "$signer")"
cat data >&3
exec 3>&-
wait "$signer" || fail "$(<errors)"
openssl_verifies rsa2048 attached -out back

for form in DER PEM; do
    openssl cms -sign -binary -keyid -in data -signer "$shared/rsa2048.leaf.pem" -inkey "$shared/rsa2048.pem" -outform "$form" \
        -out theirs
    answers 3 verify theirs data
    refuses verify theirs changed
done
openssl cms -sign -binary -nodetach -stream -in data -signer "$shared/p256.leaf.pem" -inkey "$shared/p256.pem" -outform DER -out theirs
answers 3 verify theirs -o content
cmp content data

tool encrypt data -o message --cert "$shared/rsa4096.leaf.pem"
openssl cms -decrypt -binary -inform DER -in message -recip "$shared/rsa4096.leaf.pem" -inkey "$shared/rsa4096.pem" -out back
cmp back data || fail "openssl decrypts something else"
wine "$bin/quelta.exe" encrypt - --cert "$shared/rsa4096.leaf.pem" <data >message 2>errors || fail "$(<errors)"
openssl cms -decrypt -binary -inform DER -in message -recip "$shared/rsa4096.leaf.pem" -inkey "$shared/rsa4096.pem" -out back
cmp back data || fail "openssl decrypts something else of a stream"
for provider in csp ksp; do
    for padding in pkcs1 oaep; do
        openssl cms -encrypt -binary -aes256 -in data -outform DER -out message -recip "$shared/rsa2048.leaf.pem" \
            -keyopt "rsa_padding_mode:$padding"
        rm -f back
        tool decrypt message -o back --provider "$provider" --pin "$pin"
        cmp back data || fail "quelta decrypts something else: $provider $padding"
    done
done
head -c -60 message >damaged
refuses decrypt damaged -o none --pin "$pin"
[[ ! -e none ]] || fail "a refused message leaves a file"
openssl cms -encrypt -binary -aes-256-gcm -in data -outform DER -out message -recip "$shared/rsa2048.leaf.pem"
refuses decrypt message -o none --pin "$pin"
says "AES-GCM"
openssl cms -encrypt -binary -aes256 -in data -outform PEM -out message -recip "$shared/rsa2048.leaf.pem"
refuses decrypt message -o none --pin "$pin"
says "convert it first: openssl cms"
openssl req -x509 -key "$shared/rsa2048.pem" -subj "/CN=Signer only" -addext keyUsage=digitalSignature -out signer.pem
refuses encrypt data -o none --cert signer.pem
says "Signer only does not allow the key to encrypt"
tool encrypt data -o message --cert signer.pem --force
# A certificate that the key had before the one that is on the token.
openssl req -x509 -key "$shared/rsa2048.pem" -subj "/CN=Formerly" -days 2 -out former.pem
openssl cms -encrypt -binary -aes128 -in data -outform DER -out message -recip former.pem
tool decrypt message -o back --pin "$pin"
cmp back data

# Another program finds what was published, by the subject alone.
application() {
    QUELTA_SUBJECT="rsa2048 of the tests" wine "$bin/quelta_end_to_end.exe" --gtest_also_run_disabled_tests \
        --gtest_filter=OneProcess.DISABLED_SignsWithACertificateOfTheStore >errors 2>&1 </dev/null
}
answers 1 check --pin "$pin"
says "FAILED *published"
tool publish
tool publish
! grep -q "put into" output || fail "publishing twice changes something: $(<output)"
openssl pkcs7 -inform DER -in data.p7s -print_certs -out issuing.pem
cat "$shared/rsa2048.root.pem" >>issuing.pem
application || fail "the application can't sign: $(<errors)"
openssl cms -verify -binary -inform DER -purpose any -CAfile issuing.pem -in theirs \
    -content data -out back 2>errors || fail "openssl refuses what the application signed: $(<errors)"
tool check --pin "$pin" --report report
! grep -q "$pin" report output || fail "the PIN is in the report"
says "ok *PIN: accepted"
tool unpublish
! application || fail "the certificate is still there"
tool unpublish
says "nothing was published"

# What the help desk reads in each state: check SAYS... [-- ARGUMENT...]
check() {
    local texts=()
    while [[ $# -gt 0 && $1 != -- ]]; do
        texts+=("$1")
        shift
    done
    answers 1 check "${@:2}"
    for text in "${texts[@]}"; do says "$text"; done
}
check "FAILED *published: .*quelta publish" "note *chains: .*a root that this system does not trust"
check "FAILED *PIN: refused: .*the PIN is wrong" "-- *signature through CryptoAPI" -- --pin 99999
token pin lock
check "FAILED *PIN: refused: .*PIN is locked" "-- *signature through key storage" -- --pin "$pin"
token pin unlock
token clock mismatch
check "FAILED *PIN: refused: .*clock" -- --pin "$pin"
token clock ok
check "FAILED *report: can't write" "ok *keys: 7" -- --report nowhere/report
tool check --installation
token unplug
tool check --installation
check "FAILED *token: .*plug it in" "-- *keys: there is no token"
# The provider prints what it can't log.
mkdir temp && touch temp/Oskvar
wine cmd /c "set TMP=$(winepath -w temp)&& $(winepath -w "$bin/quelta.exe") list --json" >output 2>errors </dev/null || true
says "Unable to write log"
[[ $(head -c 1 output) == "{" && $(tail -n 1 output) == "}"* ]] || fail "the provider prints between the JSON: $(<output)"
token plug
mv token full
token init --pin "$pin"
check "FAILED *keys: the token holds no key" "-- *validity: the token holds no key"
token keygen --type rsa2048
check "FAILED *certificates: .*has none" "-- *validity: there is no certificate"
openssl req -x509 -newkey rsa:2048 -nodes -subj "/CN=Authority" -keyout authority.key -out authority.pem 2>log
openssl req -newkey rsa:2048 -nodes -subj "/CN=Orphan" -keyout orphan.key -out orphan.csr 2>log
openssl x509 -req -in orphan.csr -CA authority.pem -CAkey authority.key -CAcreateserial -days 2 -out orphan.pem 2>log
token init --pin "$pin" --force
token import orphan.key orphan.pem
check "note *chains: .*Orphan. has an issuer whose certificate is missing, CN=Authority"
# It ends the second it begins.
openssl x509 -req -in orphan.csr -signkey orphan.key -days 0 -out late.pem 2>log
token init --pin "$pin" --force
token import orphan.key late.pem
check "FAILED *validity: .*Orphan. expired on"
refuses encrypt data -o none --cert late.pem
says "Orphan expired on"
rm -r token && mv full token

# installed CHANGE...: check over a copy of what is installed, changed by a command
installed() {
    rm -rf installed && mkdir installed
    cp "$bin"/{quelta.exe,QueltaCSP.dll} "$bin/../softtoken/QueltaDSCLibrary.dll" installed
    (cd installed && "$@")
}
installed true
registration_of "$(winepath -w installed/QueltaCSP.dll)" >installed.reg
wine regedit /S installed.reg
# A byte of the file's header: the processor that it is for.
make_32_bit() {
    local header
    header=$(od -An -tu4 -j60 -N4 "$1")
    printf '\x4c' | dd of="$1" bs=1 seek=$((header + 4)) conv=notrunc status=none
    printf '\x01' | dd of="$1" bs=1 seek=$((header + 5)) conv=notrunc status=none
}
library=QueltaDSCLibrary.dll
foreign="sed -i s/msvcrt.dll/MSVCP1.dll/"
rows=(
    "rm QueltaCSP.dll|FAILED *module: QueltaCSP.dll is neither"
    "truncate -s0 QueltaCSP.dll|FAILED *module: .*is empty"
    "rm $library|FAILED *device library: .*is missing; put it beside"
    "make_32_bit $library|FAILED *device library: .*is a 32-bit DLL.*maker's library anew"
    "truncate -s100000 $library|FAILED *device library: .*is cut short"
    "truncate -s0 $library|FAILED *device library: .*is empty"
    "$foreign $library|FAILED *device library: .*change the module"
    "$foreign QueltaCSP.dll|FAILED *device library: .*with GCC.*install the maker's"
)
for row in "${rows[@]}"; do
    # shellcheck disable=SC2086
    installed ${row%%|*}
    status=0
    WINEPATH='' wine installed/quelta.exe check >output 2>errors </dev/null || status=$?
    [[ $status -eq 1 ]] || fail "check answers $status after ${row%%|*}"
    says "${row#*|}"
    says "-- *loading"
done
registration_of '%SystemRoot%\system32\rsaenh.dll' >other.reg
wine regedit /S other.reg
check "FAILED *CryptoAPI: registered with another DLL, .*rsaenh.dll"
