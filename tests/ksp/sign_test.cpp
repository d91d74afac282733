#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;

class KspSign : public KspTest {
protected:
    KspSign() : key(opened(token.withKeyPair(usageSigning, algorithmRsa1024))) {}

    SECURITY_STATUS sign(GuardedBuffer& output, DWORD flags = 0)
    {
        GuardedBuffer hash(Bytes{1, 2, 3});
        return ksp.SignHash(provider, key, nullptr, hash.data(), 3, output.data(), output.length(), &size, flags);
    }
    static std::string call(const char* pin)
    {
        return std::string("signHash(TOKEN-1, 01010101010101010101010101010101, ") + pin + ", 010203, room 128, false)";
    }

    NCRYPT_KEY_HANDLE key;
    DWORD size = 77;
    GuardedBuffer signature{128};
};

TEST_F(KspSign, EllipticSignatureIsTwiceWhatTheSizeQueryTells)
{
    cachePin();
    key = opened(token.withKeyPair(usageSigning, algorithmP521));
    EXPECT_EQ(ksp.SignHash(provider, key, nullptr, nullptr, 0, nullptr, 0, &size, 0), 0);
    EXPECT_EQ(size, 65u);
    token.signature.bytes = counting(132);
    GuardedBuffer roomy(140);
    EXPECT_EQ(sign(roomy, BCRYPT_PAD_PKCS1 | BCRYPT_PAD_PSS | NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(size, 132u);
    EXPECT_EQ(roomy.first(132), counting(132));
    EXPECT_TRUE(roomy.untouchedFrom(132));
    EXPECT_THAT(token.takeCalls(), ElementsAre(testing::HasSubstr("room 140")));
}

TEST_F(KspSign, PssIsRefusedOnlyAfterThePinWasAskedFor)
{
    user.cancels();
    EXPECT_EQ(sign(signature, BCRYPT_PAD_PSS), NTE_FAIL);
    user.entersPin("1234");
    EXPECT_EQ(sign(signature, BCRYPT_PAD_PSS), NTE_NOT_SUPPORTED);
    EXPECT_EQ(log.takeLines().back(), error("KSP: PSS padding not supported"));
    EXPECT_THAT(token.takeDeeds(), ElementsAre("validatePassword(TOKEN-1, 1234, 1, 0)"));
    EXPECT_EQ(size, 77u);
}

TEST_F(KspSign, ExpiredSignOnIsRenewedOnce)
{
    tokenState().pinCache.setValidated(std::make_shared<const PinText>("old"));
    token.willAnswer(Call::signHash, 49);
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    EXPECT_EQ(sign(signature), NTE_INTERNAL_ERROR);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(call("old"), "validatePassword(TOKEN-1, 1234, 1, 0)", call("1234")));
    EXPECT_EQ(log.takeLines().back(), error("KSP: Sign hash failed: 49"));
    EXPECT_EQ(size, 77u);
    EXPECT_TRUE(signature.untouchedFrom(0));

    token.willAnswer(Call::signHash, 49);
    user.cancels();
    EXPECT_EQ(sign(signature), NTE_FAIL);
    EXPECT_FALSE(tokenState().pinCache.validated());
}

TEST_F(KspSign, SignatureOfAnImpossibleLengthIsAFailure)
{
    cachePin();
    for (const int lie : {-1, 129, INT_MAX}) {
        token.signature = {.bytes = Bytes{}, .reportedLength = lie};
        EXPECT_EQ(sign(signature), NTE_INTERNAL_ERROR) << lie;
    }
    EXPECT_EQ(size, 77u);
}

using KspVerify = KspTest;

TEST_F(KspVerify, TokenIsGivenTheKeysOwnAlgorithmFirst)
{
    for (const std::uint32_t algorithm : {algorithmRsa3072, algorithmP384}) {
        const QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithm);
        const auto key = opened(pair);
        GuardedBuffer hash(Bytes{1, 2});
        GuardedBuffer signature(Bytes{3, 4, 5});
        const auto verify = [&] { return ksp.VerifySignature(provider, key, nullptr, hash.data(), 2, signature.data(), 3, 0); };
        EXPECT_EQ(verify(), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre("verifySignatureHash(" + std::to_string(algorithm) + ", TOKEN-1, 0102, " +
                                                   hexOf(publicKeyForToken(pair)) + ", 030405)"));
        token.willAnswer(Call::verifySignatureHash, 49);
        EXPECT_EQ(verify(), NTE_BAD_SIGNATURE);
        EXPECT_EQ(log.takeLines().back(), error("KSP: Verify signature failed: 49"));
    }
}

TEST_F(KspVerify, NothingIsVerifiedWithoutHashSignatureAndKey)
{
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setPublicKey(pair, {});
    const auto key = opened(pair);
    BYTE byte = 1;
    const auto verify = [&](PBYTE hash, DWORD hashLength, PBYTE signature, DWORD length) {
        return ksp.VerifySignature(provider, key, nullptr, hash, hashLength, signature, length, 0);
    };
    EXPECT_EQ(verify(nullptr, 1, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(&byte, 1, nullptr, 1), NTE_INVALID_PARAMETER);
    for (const DWORD length : {DWORD{0}, DWORD{0x80000000}}) {
        EXPECT_EQ(verify(&byte, length, &byte, 1), NTE_INVALID_PARAMETER);
        EXPECT_EQ(verify(&byte, 1, &byte, length), NTE_INVALID_PARAMETER);
    }
    EXPECT_EQ(verify(&byte, 1, &byte, 1), NTE_BAD_KEY);
    EXPECT_EQ(ksp.VerifySignature(provider, 0, nullptr, &byte, 1, &byte, 1, 0), NTE_INVALID_HANDLE);
    EXPECT_THAT(token.takeCalls(), testing::IsEmpty());
}

} // namespace quelta::test
