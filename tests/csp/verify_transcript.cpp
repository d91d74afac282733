#include "csp/csp_scenario.h"

#include "csp/context.h"
#include "encoding/rsa_public_key.h"

namespace quelta::test {

class VerifyTranscript : public CspScenario {
protected:
    VerifyTranscript() : pair(token.withKeyPair(usageBoth, algorithmRsa2048)) { open(); }

    QueltaKeyPair& pair;
};

TEST_F(VerifyTranscript, KeyGoesToTheTokenAsDERAndTheSignatureTurned)
{
    const HCRYPTHASH hash = finishedHash();
    csp.verifySignature(hash, counting(256), userKey(), 5);
    setPublicKey(pair, rawModulusToDer(publicKeyOf(pair)));
    csp.verifySignature(hash, counting(256), userKey());
    errorsAlone();
    recorder.note("the library's context stays behind");
    contextOf(csp.context)->libContext = this;
    csp.verifySignature(hash, CspCalls::null, userKey());
}

TEST_F(VerifyTranscript, WithoutAPublicKeyTheContainersServesAndAlwaysAsAModulus)
{
    const HCRYPTHASH hash = finishedHash();
    const HCRYPTKEY symmetric = sessionKey(CALG_AES_128, Bytes(16, 1));
    pair.usage = usageKeyExchange;
    Bytes likeDer = counting(256);
    likeDer.front() = 0x30;
    setPublicKey(token.withKeyPair(usageSigning, algorithmRsa2048), likeDer);
    token.withKeyPair(usageSigning, algorithmRsa2048);
    csp.verifySignature(hash, Bytes{1, 2});
    errorsAlone();
    csp.verifySignature(hash, Bytes{1, 2}, symmetric);
    recorder.note("a container whose key can't sign has none, and no other is taken");
    openContainerOf(pair);
    csp.verifySignature(hash, Bytes{1, 2});
}

TEST_F(VerifyTranscript, OpenDigestIsReadAsACallerWouldReadIt)
{
    const HCRYPTHASH hash = newHash();
    const HCRYPTKEY key = userKey();
    csp.verifySignature(hash, Bytes{1, 2}, key);
    errorsAlone();
    csp.verifySignature(hash, Bytes{1, 2}, key);
}

TEST_F(VerifyTranscript, DigestThatCanNotBeReadIsABadHash)
{
    csp.verifySignature(newHash(CALG_SHA_384), Bytes{1});
    const HCRYPTHASH failing = newHash();
    token.willAnswer(Call::finalHash, 2);
    csp.verifySignature(failing, Bytes{1});
    recorder.note("signing an empty digest of SHA-1 with a key of 3072 bits makes it read back as one of SHA-256");
    pair.algorithm = algorithmRsa3072;
    token.digest.bytes = Bytes();
    const HCRYPTHASH renamed = newHash(CALG_SHA1);
    csp.signHash(renamed, AT_SIGNATURE, query());
    csp.verifySignature(renamed, Bytes{1});
}

TEST_F(VerifyTranscript, WrongSignatureAndOnesThatCanNotBe)
{
    const HCRYPTHASH hash = finishedHash();
    token.willAnswer(Call::verifySignatureHash, 17);
    csp.verifySignature(hash, Bytes{1}, userKey());
    csp.call("CPVerifySignature", "a signature of 1 byte and no address",
             [&] { return CPVerifySignature(csp.context, hash, nullptr, 1, 0, nullptr, 0); });
    const BYTE byte = 0;
    csp.call("CPVerifySignature", "a signature of 2147483648 bytes",
             [&] { return CPVerifySignature(csp.context, hash, &byte, 0x80000000, 0, nullptr, 0); });
}

TEST_F(VerifyTranscript, AtLevelTwoErrorsAlone)
{
    const HCRYPTHASH hash = finishedHash();
    const HCRYPTHASH unreadable = newHash(CALG_SHA_384), failing = newHash();
    errorsAlone();
    csp.verifySignature(unreadable, Bytes{1});
    token.willAnswer(Call::finalHash, 2);
    csp.verifySignature(failing, Bytes{1});
    token.willAnswer(Call::verifySignatureHash, -17);
    csp.verifySignature(hash, Bytes{1});
    csp.verifySignature(0, Bytes{1});
    csp.context = 0;
    csp.verifySignature(0, Bytes{1});
}

} // namespace quelta::test
