#!/usr/bin/env bash
# quelta.sh BIN SHARED: tests quelta against openssl. Each reads what the other has made, and refuses what was changed.
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

# Another build may be registered in the prefix. That registration comes back at the end.
restore() {
    wine "$bin/quelta.exe" unpublish >/dev/null 2>&1 </dev/null || true
    wine reg delete "$provider_key" /f >/dev/null 2>&1 || true
    [[ ! -s before.reg ]] || wine regedit /S before.reg
    cd / && rm -rf "$work"
}
wine regedit /E before.reg "$provider_key" >/dev/null 2>&1 || true
trap restore EXIT

# register DLL: registers DLL for CryptoAPI.
register() {
    registration_of "$1" >provider.reg
    wine regedit /S provider.reg
}

# says TEXTS: the last output must have each of the texts, which " & " separates.
says() {
    local text
    while read -r text; do
        grep -q -- "$text" output errors || fail "it does not say \"$text\": $(cat output errors)"
    done <<<"${1// & /$'\n'}"
}

# answers STATUS TEXTS COMMAND...: runs quelta, which must answer STATUS and say TEXTS.
answers() {
    local status=0
    wine "${quelta:-$bin/quelta.exe}" "${@:3}" >output 2>errors <"${input:-/dev/null}" || status=$?
    [[ $status -eq $1 ]] || fail "quelta ${*:3} answers $status and not $1: $(<errors)"
    [[ -z $2 ]] || says "$2"
}

# does COMMAND...: runs quelta, which must succeed.
does() {
    answers 0 "" "$@"
}

# refuses TEXTS COMMAND...: runs quelta, which must fail with one line and print nothing to standard output.
refuses() {
    answers 1 "$@"
    [[ $(wc -l <errors) -eq 1 && ! -s output ]] || fail "quelta ${*:2} is not refused in one line: $(<errors)"
}

token() {
    wine "$bin/../softtoken/quelta-token.exe" "$@" >log 2>&1 </dev/null || fail "quelta-token $* failed: $(<log)"
}

# openssl_verifies ROOTS SIGNATURE [ARGUMENT]...: openssl must accept the signature. Its content goes to back.
openssl_verifies() {
    openssl cms -verify -binary -cades -inform DER -purpose any -CAfile "$1" -in "$2" -out back "${@:3}" 2>errors ||
        fail "openssl refuses the signature $2: $(<errors)"
}

# openssl_encrypts ARGUMENT...: encrypts data into message.
openssl_encrypts() {
    openssl cms -encrypt -binary -in data -outform DER -out message "$@"
}

# sign_and_verify PROVIDER KEY HASH: signs data, verifies the signature with openssl and quelta, and changes it.
sign_and_verify() {
    local root=$shared/$2.root.pem
    rm -f signature
    does sign data -o signature --provider "$1" --key "$(head -c 8 "$shared/$2.id" | tr A-F a-f)" --pin "$pin" --hash "$3"
    openssl_verifies "$root" signature -content data
    answers 0 "hash *$3" verify signature data --root "$root"
    refuses "NOT VALID" verify signature changed --root "$root"
    perl -0777 -pe 's/(.)\z/chr(ord($1) ^ 1)/se' signature >forged
    refuses "NOT VALID" verify forged data --root "$root"
}

register "$(winepath -w "$bin/QueltaCSP.dll")"
printf 'one line\r\nanother\n' >data
printf 'another line\n' >changed

answers 0 "rsa4096 of the tests .* RSA-4096 *sign,decrypt *csp,ksp & p256 of the tests .* P-256 *sign *ksp" list
answers 2 "csp (CryptoAPI) or ksp" sign data --provider smartcard
for command in "" list sign verify encrypt decrypt publish unpublish check; do
    # shellcheck disable=SC2086
    does $command --help
    ! grep -E '.{80}' output || fail "the help of quelta $command has lines that are too long"
done
! wine "$bin/quelta.exe" list >/dev/full 2>errors </dev/null || fail "a full disk is no failure"

sign_and_verify csp rsa4096 sha512
sign_and_verify ksp rsa2048 sha1
sign_and_verify ksp p256 sha384
sign_and_verify csp rsa2048 sha256
answers 3 "^good signature of data, but .* NOT CHECKED" verify signature data
refuses "NOT VALID" verify signature data --root "$shared/p256.root.pem"
# A time stamp is an attribute that is not signed. It makes five elements longer.
perl -0777 -pe '$_ .= $stamp = pack "H*", "a1133011060b2a864886f70d010910020e31020500"; /\x31\x82..\x30\x82..\x02\x01\x01\x30/s;
    foreach $at (0, 15, 19, $-[0], $-[0] + 4) { substr($_, $at + 2, 2) = pack "n", length($stamp) + unpack "n", substr $_, $at + 2, 2 }' signature >stamped
answers 0 "there is a time stamp, which was not checked" verify stamped data --root "$shared/rsa2048.root.pem"
refuses "certificate of CN=rsa2048 of the tests is not valid before" \
    verify signature data --root "$shared/rsa2048.root.pem" --at 2001-01-01
answers 1 '"good": false' verify --json signature changed
answers 1 '"error": .*no such file' verify --json absent data
refuses "no CMS" verify data data
refuses "the PIN is wrong, .* another wrong one may lock the token .*log says: .* failed" sign data -o wrong --key rsa2048 --pin 000000
refuses "code page" sign data -o wrong --key rsa2048 --pin "A1Ā"
refuses "the PIN is empty" sign data -o wrong --key rsa2048 --pin ""
[[ ! -e wrong ]] || fail "a refused signature leaves a file"
refuses "fits several keys; say which with --key: 2 [0-9A-F]* (rsa2048 of the tests), 4 " sign data --key "of the tests" --pin "$pin"
refuses "no key on the token fits nobody; choose one with --key: 1 [0-9A-F]* (" sign data --key nobody --pin "$pin"
refuses "the input itself" sign data -o ./data --pin "$pin"

# The examples of the documentation sign with the first key that has a certificate. They find the test's ncrypt.dll beside them.
mkdir examples
cp "$bin"/{QueltaCSP.dll,sign_with_cryptoapi.exe,sign_with_cng.exe} "$bin/../ncrypt/ncrypt.dll" examples
for example in sign_with_cryptoapi sign_with_cng; do
    rm -f signature
    WINEDLLOVERRIDES="$WINEDLLOVERRIDES;ncrypt=n" wine "examples/$example.exe" data signature "$pin" >output 2>errors </dev/null ||
        fail "$example: $(<errors)"
    openssl dgst -sha256 -verify "$shared/rsa2048.pub.pem" -signature signature data >output || fail "$example: $(<output)"
    ! wine "examples/$example.exe" absent signature "$pin" >output 2>&1 </dev/null || fail "$example signs a file that is not there"
done

# One PIN signs several files. File names may have any letters. Another key adds a signature. Input and output may be streams.
cp data "bläu 1"
printf '%s\n' "$pin" >line
input=line answers 0 "data.p7s$" sign data "bläu 1" --key rsa2048 --pin-stdin
answers 0 "data.p7s, in place of the one that was there" sign data --key rsa2048 --pin "$pin"
does sign "bläu 1" --add --key "p256 of the tests" --pin "$pin"
cat "$shared"/{rsa2048,p256}.root.pem >both.root.pem
answers 0 "CN=p256 of the tests" verify --root "$shared/rsa2048.root.pem" --root "$shared/p256.root.pem" "bläu 1.p7s" "bläu 1"
openssl_verifies both.root.pem "bläu 1.p7s" -content data
refuses "the file is not the one that was signed" sign changed -o data.p7s --add --pin "$pin"

# copies_of_pin PROCESS: counts the copies of the PIN, in bytes and in UTF-16, in the memory that the process can write to.
copies_of_pin() {
    # shellcheck disable=SC2016
    perl -ne 'BEGIN { $pin = join "\0?", split //, shift; open $memory, "<:raw", shift }
        next unless /^(\w+)-(\w+) rw/ && sysseek($memory, hex $1, 0) && sysread($memory, $part, hex($2) - hex($1));
        $count++ while $part =~ /$pin/g;
        END { print $count }' "$pin" "/proc/$1/mem" "/proc/$1/maps"
}
mkfifo pipe
wine "$bin/quelta.exe" sign - --attached --key rsa2048 --pin-stdin <pipe >attached 2>errors &
signer=$!
exec 3>pipe
printf '%s\n' "$pin" >&3
# quelta writes the head of the message when it has the PIN, and the rest when there is content.
for ((i = 0; i < 300 && $(stat -c %s attached) == 0; ++i)); do sleep 0.1; done
[[ -s attached ]] || fail "signing does not begin: $(<errors)"
copies=$(copies_of_pin "$signer")
[[ $copies -eq 1 ]] || fail "the process has $copies copies of the PIN, and the provider keeps one"
cat data >&3
exec 3>&-
wait "$signer" || fail "$(<errors)"
openssl_verifies "$shared/rsa2048.root.pem" attached
cmp back data

for form in -keyid -noattr; do
    openssl cms -sign -binary -in data -signer "$shared/rsa2048.leaf.pem" -inkey "$shared/rsa2048.pem" $form -outform PEM -out theirs
    answers 3 "" verify theirs data
    refuses "NOT VALID" verify theirs changed
done
openssl cms -sign -binary -in data -signer "$shared/p256.leaf.pem" -inkey "$shared/p256.pem" -nodetach -stream -outform DER -out theirs
answers 3 "" verify theirs -o content
cmp content data
head -c -1 theirs >part
answers 1 "" verify part -o content

input=data does encrypt - --cert "$shared/rsa4096.leaf.pem"
openssl cms -decrypt -binary -inform DER -in output -recip "$shared/rsa4096.leaf.pem" -inkey "$shared/rsa4096.pem" -out back
cmp back data
for provider in csp ksp; do
    for padding in pkcs1 oaep; do
        openssl_encrypts -aes256 -recip "$shared/rsa2048.leaf.pem" -keyopt "rsa_padding_mode:$padding"
        rm -f back
        does decrypt message -o back --provider "$provider" --pin "$pin"
        cmp back data || fail "quelta decrypts something else: $provider $padding"
    done
done
# The contents end at the borders of blocks and pieces. Their writer does not know the length in advance.
for size in 0 15 16 65536 200001; do
    head -c "$size" /dev/urandom >sized
    openssl cms -encrypt -binary -stream -indef -in sized -outform DER -out message -aes256 "$shared/rsa2048.leaf.pem"
    rm -f back
    does decrypt message -o back --pin "$pin"
    cmp back sized || fail "quelta decrypts something else: $size bytes"
done
# An incomplete message leaves the old file as it was.
for size in 0 100 1000 100000 -1; do
    head -c "$size" message >part
    refuses "" decrypt part -o back --pin "$pin"
    cmp back sized || fail "$size bytes of a message change the file"
done
does sign sized --key 2 --pin "$pin"
openssl_verifies "$shared/rsa2048.root.pem" sized.p7s -content sized
openssl req -x509 -newkey rsa:2048 -nodes -keyout later.pem -subj "/CN=Later" -out later.pem 2>log
openssl_encrypts -aes256 -recip later.pem
refuses "not encrypted for a key on this token" decrypt message -o none --pin "$pin"
# This changes the last byte, which is part of the padding.
openssl_encrypts -aes256 -recip "$shared/rsa2048.leaf.pem"
perl -0777 -pe 'substr($_, -17, 1) ^= "\1"' message >part
refuses "" decrypt part -o none --pin "$pin"
openssl_encrypts -aes-256-gcm -recip "$shared/rsa2048.leaf.pem"
refuses "AES-GCM" decrypt message -o none --pin "$pin"
openssl_encrypts -aes256 -outform PEM -recip "$shared/rsa2048.leaf.pem"
refuses "convert it first: openssl cms" decrypt message -o none --pin "$pin"
openssl req -x509 -key "$shared/rsa2048.pem" -subj "/CN=Signer only" -addext keyUsage=digitalSignature -out signer.pem
refuses "Signer only does not allow the key to encrypt" encrypt data -o none --cert signer.pem
does encrypt data -o message --cert signer.pem --force
# The message is for a former certificate of the key.
openssl req -x509 -key "$shared/rsa2048.pem" -subj "/CN=Formerly" -days 2 -out former.pem
openssl_encrypts -aes128 -recip former.pem
does decrypt message -o back --pin "$pin"
cmp back data

# another_program DEED: lets another program do this.
another_program() {
    QUELTA_SUBJECT="rsa2048 of the tests" wine "$bin/quelta_end_to_end.exe" --gtest_also_run_disabled_tests \
        --gtest_filter="OneProcess.DISABLED_$1" >other 2>&1 </dev/null
}
does publish
another_program SignsWithACertificateOfTheStore || fail "the application can't sign: $(<other)"
answers 3 "signer *CN=rsa2048 of the tests" verify theirs data
answers 0 "ok *PIN: accepted" check --pin "$pin" --report report
! grep -q "$pin" report output || fail "the PIN is in the report"
does unpublish
! another_program SignsWithACertificateOfTheStore || fail "the certificate is still there"
answers 0 "nothing was published" unpublish

# The help desk reads these lines in each state.
answers 1 "FAILED *published: .*quelta publish & note *chains: .*a root that this computer does not trust & -- *signature through key storage: no PIN was given" check
answers 1 "FAILED *PIN: refused: .*the PIN is wrong & -- *signature through CryptoAPI" check --pin 99999
token list
grep -q "PIN 2 of 3 attempts left" log || fail "a wrong PIN does not cost one attempt: $(<log)"
another_program CancelsThePinDialog &
answers 1 "FAILED *PIN: refused: .*the PIN was not entered" check --pin-dialog
wait $! || fail "there was no dialog: $(<other)"
token pin lock
answers 1 "FAILED *PIN: refused: .*PIN is locked & -- *signature through key storage" check --pin "$pin"
token pin unlock
token clock mismatch
answers 1 "FAILED *PIN: refused: .*clock" check --pin "$pin"
token clock ok
answers 1 "FAILED *report: can't write & ok *keys: 7" check --report nowhere/report
token unplug
does check --installation
answers 1 "FAILED *token: .*plug it in & -- *keys: there is no token" check
# The provider prints what it can't log.
mkdir temp && touch temp/Oskvar
wine cmd /c "set TMP=$(winepath -w temp)&& $(winepath -w "$bin/quelta.exe") list --json" >output 2>errors </dev/null || true
says "Unable to write log"
[[ $(head -c 1 output) == "{" && $(tail -n 1 output) == "}"* ]] || fail "the provider prints between the JSON: $(<output)"
token plug
mv token full
token init --pin "$pin"
answers 1 "FAILED *keys: the token holds no key & -- *validity: the token holds no key" check
token keygen --type rsa2048
answers 1 "FAILED *certificates: .*has none & -- *validity: there is no certificate" check
refuses "no key on the token can sign and has a certificate" sign data -o none --pin "$pin"
token init --pin "$pin" --force
token import "$shared/rsa2048.pem" "$shared/rsa2048.leaf.pem"
answers 1 "note *chains: .*has an issuer whose certificate is missing on this computer, CN=" check
# The certificate ends in the second in which it begins.
openssl req -new -key "$shared/rsa2048.pem" -subj "/CN=Late" -out late.csr
openssl x509 -req -in late.csr -signkey "$shared/rsa2048.pem" -days 0 -out late.pem 2>log
token init --pin "$pin" --force
token import "$shared/rsa2048.pem" late.pem
answers 1 "FAILED *validity: .*Late. expired on" check
token import later.pem
refuses "expired on" sign data -o late --key Late --pin "$pin"
does sign data -o late --key Late --pin "$pin" --force
does sign data -o unnamed --pin "$pin"
answers 3 "signer *CN=Later" verify unnamed data
rm -r token && mv full token

register "$(winepath -w "$work")\\installed\\QueltaCSP.dll"
library=QueltaDSCLibrary.dll
foreign="sed -i s/msvcrt.dll/ucrtbase.d/"
other_processor="env LC_ALL=C sed -i s/PE\x00\x00d\x86/PE\x00\x00L\x01/"
# The library's start (xor eax, eax; ret) answers FALSE. The header of its section stands 264 bytes behind PE.
refuse_to_start() { perl -0777 -pi -e '$p=unpack"x60V";($v,$s,$r)=unpack"x$p x276V3";substr($_,unpack("x$p x40V")-$v+$r,3)="\x31\xc0\xc3"' $library; }
needs_another() { sed s/bcrypt.dll/absent.dll/ $library >second.dll && sed -i s/bcrypt.dll/second.dll/ $library; }
# Each row has a change of the installed files, the finding of check, and what list says if it says something else.
while IFS='|' read -r change finding listed; do
    rm -rf installed && mkdir installed
    cp "$bin"/{quelta.exe,QueltaCSP.dll} "$bin/../softtoken/$library" installed
    # shellcheck disable=SC2086
    (cd installed && $change)
    quelta=installed/quelta.exe WINEPATH='' answers 1 "FAILED *$finding & -- *token:" check
    quelta=installed/quelta.exe WINEPATH='' refuses "${listed:-${finding#*: }}" list
done <<END
rm QueltaCSP.dll|module: QueltaCSP.dll is neither
truncate -s0 QueltaCSP.dll|module: .*is empty
rm $library|device library: .*is missing; put it beside
$other_processor $library|device library: .*is not a 64-bit DLL.*maker's 64-bit library
cp quelta.exe $library|device library: .*is no DLL
truncate -s100000 $library|device library: .*is cut short
refuse_to_start|loading: .*$library is damaged, or it fails when it starts|or $library can't be loaded
sed -i s/bcrypt.dll/absent.dll/ $library|loading: .*absent.dll is missing, which .*$library needs; put it beside|or $library can't be loaded
needs_another|loading: .*a DLL is missing that .*$library needs through another one|or $library can't be loaded
$foreign $library|device library: .*keep the library
$foreign QueltaCSP.dll|device library: .*with GCC.*install the maker's
END
register '%SystemRoot%\system32\rsaenh.dll'
answers 1 "FAILED *CryptoAPI: registered with another DLL, .*rsaenh.dll & -- *token: the registration" check
