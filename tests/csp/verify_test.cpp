#include "csp/csp_test.h"

#include "csp/context.h"
#include "encoding/rsa_public_key.h"

namespace quelta::test {

namespace {

Bytes asDer(ByteView modulus)
{
    return rsaPublicKeyToDer(hexOf(modulus), "010001");
}

} // namespace

class VerifySignature : public CspTest {
protected:
    VerifySignature() : pair(token.withKeyPair(usageBoth, algorithmRsa1024)), prov(acquire()), hash(finishedHash(prov)) {}

    Called<BOOL> verify(HCRYPTKEY key)
    {
        const auto answer = callWithLastError(
            [&] { return CPVerifySignature(prov, hash, signature.data(), signature.length(), key, L"ignored", 0xFFFFFFFF); });
        EXPECT_EQ(signature.bytes(), counting(128)) << "the caller's buffer";
        return answer;
    }
    static std::string verifyCall(const Bytes& publicKey)
    {
        return "verifySignatureHash(2, TOKEN-1, " + hexOf(counting(32)) + ", " + hexOf(publicKey) + ", " +
               hexOf(reversed(counting(128))) + ")";
    }

    QueltaKeyPair& pair;
    HCRYPTPROV prov;
    HCRYPTHASH hash;
    const GuardedBuffer signature{counting(128)};
};

TEST_F(VerifySignature, KeyGoesAsDerAndBeforeTheTurnedSignature)
{
    const HCRYPTKEY raw = userKey(prov);
    const Bytes der = asDer(publicKeyOf(pair));
    setPublicKey(pair, der);
    const HCRYPTKEY alreadyDer = userKey(prov);
    contextOf(prov)->libContext = this; // must not be passed on
    EXPECT_EQ(verify(raw), succeeded());
    EXPECT_THAT(token.takeCalls(), ElementsAre(verifyCall(der)));
    EXPECT_EQ(verify(alreadyDer), succeeded());
    EXPECT_THAT(token.takeCalls(), ElementsAre(verifyCall(der)));
    token.willAnswer(Call::verifySignatureHash, 17);
    EXPECT_EQ(verify(raw), failedWith(NTE_BAD_SIGNATURE));
}

TEST_F(VerifySignature, WithoutAPublicKeyTheContainersServesAlwaysAsAModulus)
{
    const HCRYPTKEY session = sessionKey(prov, CALG_AES_128, Bytes(16, 1));
    pair.usage = usageKeyExchange;
    auto& second = token.withKeyPair(usageSigning, algorithmRsa1024);
    Bytes likeDer = counting(128);
    likeDer.front() = 0x30;
    setPublicKey(second, likeDer);
    token.withKeyPair(usageSigning, algorithmRsa1024);
    for (const HCRYPTKEY noPublicKey : {HCRYPTKEY{0}, session}) {
        EXPECT_EQ(verify(noPublicKey), succeeded());
        EXPECT_THAT(token.takeCalls(), ElementsAre("getKeyPairList(TOKEN-1)", verifyCall(asDer(likeDer))));
    }
    prov = acquire(keyName(pair));
    EXPECT_EQ(verify(0), failedWith(NTE_BAD_KEY)) << "the named one can't sign, and no other is taken";
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
}

TEST_F(VerifySignature, OpenDigestIsReadAsACallerWould)
{
    const HCRYPTKEY key = userKey(prov);
    hash = newHash(prov);
    token.digest.bytes = counting(32);
    EXPECT_EQ(verify(key), succeeded());
    EXPECT_THAT(token.takeCalls(), ElementsAre("finalHash(2, room 32)", verifyCall(asDer(publicKeyOf(pair)))));
}

TEST_F(VerifySignature, DigestThatCanNotBeReadIsABadHash)
{
    const auto expectBadHash = [this](const char* line) {
        EXPECT_EQ(verify(0), failedWith(NTE_BAD_HASH));
        expectLine(error(line));
    };
    hash = newHash(prov, CALG_SHA_384);
    expectBadHash("CPGetHashParam failed to get hash size");
    hash = newHash(prov);
    token.willAnswer(Call::finalHash, 2);
    expectBadHash("CPGetHashParam failed to get hash value");
    // Signing an empty digest of SHA-1 with a key of 3072 bits makes it read back as one of SHA-256.
    pair.algorithm = algorithmRsa3072;
    hash = newHash(prov, CALG_SHA1);
    token.digest.bytes = Bytes();
    query(0, [this](BYTE* data, DWORD* length) { return CPSignHash(prov, hash, AT_SIGNATURE, nullptr, 0, data, length); });
    expectBadHash("Hash size larger than expected");

    token.takeCalls();
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPVerifySignature(prov, hash, nullptr, 1, 0, nullptr, 0); });
    expectFails(ERROR_INVALID_PARAMETER,
                [&] { return CPVerifySignature(prov, hash, signature.data(), 0x80000000, 0, nullptr, 0); });
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
