#include "csp/csp_scenario.h"

#include "csp/context.h"
#include "encoding/rsa_public_key.h"

namespace quelta::test {

class VerifyTranscript : public CspScenario {
protected:
    VerifyTranscript() { open(); }

    QueltaKeyPair& pair = token.withKeyPair(usageBoth, algorithmRsa2048);
};

TRANSCRIPT(VerifyTranscript, "the key goes to the token as DER and the signature reversed")
{
    const Bytes der = concat({hexToBytes("30820122300D06092A864886F70D01010105000382010F003082010A0282010100"),
                              {publicKeyOf(pair).begin(), publicKeyOf(pair).end()},
                              hexToBytes("0203010001")});
    recorder.call(der, "(the whole SubjectPublicKeyInfo)");
    const HCRYPTHASH hash = finishedHash();
    csp("CPVerifySignature", {hash, counting(256), userKey()});
    setPublicKey(pair, der);
    csp("CPVerifySignature", {hash, counting(256), userKey()});
    errorsAlone();
    recorder.note("the library's context stays behind");
    contextOf(csp.context)->libContext = this;
    csp("CPVerifySignature", {hash, CspCalls::null, userKey()});
}

TRANSCRIPT(VerifyTranscript, "without a public key the container's is taken, always as a modulus")
{
    const HCRYPTHASH hash = finishedHash();
    const HCRYPTKEY symmetric = sessionKey(CALG_AES_128, Bytes(16, 1));
    pair.usage = usageKeyExchange;
    setPublicKey(token.withKeyPair(usageSigning, algorithmRsa2048), Bytes(256, 0x30));
    token.withKeyPair(usageSigning, algorithmRsa2048);
    csp("CPVerifySignature", {hash, Bytes{1, 2}, 0});
    errorsAlone();
    csp("CPVerifySignature", {hash, Bytes{1, 2}, symmetric});
    recorder.note("a container whose key can't sign has none, and no other is taken");
    openContainerOf(pair);
    csp("CPVerifySignature", {hash, Bytes{1, 2}, 0});
}

TRANSCRIPT(VerifyTranscript, "an open digest is read as a caller would read it")
{
    const HCRYPTKEY key = userKey();
    const HCRYPTHASH hash = newHash(), longHash = newHash(CALG_SHA_384), renamed = newHash(CALG_SHA1);
    csp("CPVerifySignature", {hash, Bytes{1, 2}, key});
    errorsAlone();
    csp("CPVerifySignature", {hash, Bytes{1, 2}, key});
    recorder.note("a long one can not be read unless it was set");
    csp("CPVerifySignature", {longHash, Bytes{1}, key});
    csp("CPSetHashParam", {longHash, HP_HASHVAL, counting(48)});
    csp("CPVerifySignature", {longHash, Bytes{1}, key});
    recorder.note("signing an empty digest of SHA-1 with a key of 3072 bits makes it read back as one of SHA-256");
    pair.algorithm = algorithmRsa3072;
    token.digest.bytes = Bytes();
    csp.signHash(renamed, query());
    csp("CPVerifySignature", {renamed, Bytes{1}, 0});
}

} // namespace quelta::test
