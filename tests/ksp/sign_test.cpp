#include "ksp/ksp_test.h"

#include "encoding/rsa_public_key.h"
#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspSign : public KspTest {
protected:
    KspSign() : key(opened(token.withKeyPair(usageSigning, algorithmRsa1024))) {}

    SECURITY_STATUS sign(GuardedBuffer& signature, DWORD flags = 0)
    {
        GuardedBuffer hash(Bytes{1, 2, 3});
        return ksp.SignHash(provider, key, nullptr, hash.data(), 3, signature.data(), signature.length(), &size, flags);
    }
    static std::string call(const char* pin = "1234", const char* room = "128")
    {
        return std::string("signHash(TOKEN-1, 01010101010101010101010101010101, ") + pin + ", 010203, room " + room + ", false)";
    }

    NCRYPT_KEY_HANDLE key;
    DWORD size = 77;
};

TEST_F(KspSign, SignatureIsReturnedAsTheTokenGivesIt)
{
    knowPin();
    GuardedBuffer signature(128);
    EXPECT_EQ(sign(signature, BCRYPT_PAD_PKCS1 | BCRYPT_PAD_PSS | NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(size, 128u);
    EXPECT_EQ(signature.bytes(), counting(128));
    EXPECT_THAT(token.takeCalls(), ElementsAre(call()));
    expectLog({debug("KSPSignHash"), debug("KSP: PIN already validated"),
               debug("KSP: SignHash - credential: 01010101010101010101010101010101"), debug("KSP: SignHash - hash length: 3"),
               debug("KSP: SignHash success, signature length=128")});
}

TEST_F(KspSign, EllipticSignatureIsTwiceWhatTheSizeQueryTells)
{
    knowPin();
    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmP521);
    key = opened(pair);
    EXPECT_EQ(ksp.SignHash(provider, key, nullptr, nullptr, 0, nullptr, 0, &size, 0), 0);
    EXPECT_EQ(size, 65u);
    expectLog({debug("KSPSignHash"), debug("KSP: SignHash size query, returning 65")});
    token.signature.bytes = counting(132);
    GuardedBuffer signature(140);
    EXPECT_EQ(sign(signature), 0);
    EXPECT_EQ(size, 132u);
    EXPECT_EQ(signature.first(132), counting(132));
    EXPECT_TRUE(signature.untouchedFrom(132));
    EXPECT_THAT(token.takeCalls(), ElementsAre(testing::HasSubstr("room 140")));
}

TEST_F(KspSign, PssIsRefusedOnlyAfterThePinWasAskedFor)
{
    GuardedBuffer signature(128);
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
    GuardedBuffer signature(128);
    tokenState().pinCache.setValidated(std::make_shared<const PinText>("old"));
    token.willAnswer(Call::signHash, 49);
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    EXPECT_EQ(sign(signature), NTE_INTERNAL_ERROR);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(call("old"), "validatePassword(TOKEN-1, 1234, 1, 0)", call()));
    const auto lines = log.takeLines();
    EXPECT_THAT(lines, testing::Contains(debug("KSP: SignHash SSO expired, re-prompting for PIN")).Times(1));
    EXPECT_EQ(lines.back(), error("KSP: Sign hash failed: 49"));
    EXPECT_EQ(size, 77u);
    EXPECT_TRUE(signature.untouchedFrom(0));

    token.willAnswer(Call::signHash, 49);
    user.cancels();
    EXPECT_EQ(sign(signature), NTE_FAIL);
    EXPECT_FALSE(tokenState().pinCache.validated());
}

TEST_F(KspSign, SignatureOfAnImpossibleLengthIsAFailure)
{
    knowPin();
    GuardedBuffer signature(130);
    for (const int lie : {-1, 131, INT_MAX}) {
        token.signature = {.bytes = Bytes{}, .reportedLength = lie};
        EXPECT_EQ(sign(signature), NTE_INTERNAL_ERROR) << lie;
        EXPECT_EQ(log.takeLines().back(), error("KSP: Sign hash failed: 0"));
    }
    EXPECT_EQ(size, 77u);
}

TEST_F(KspSign, SigningIsRefusedInTheOrderOfItsChecks)
{
    BYTE hash = 1;
    GuardedBuffer signature(128);
    const auto attempt = [&](NCRYPT_KEY_HANDLE handle, PBYTE data, DWORD length, PBYTE out, DWORD room, DWORD* result) {
        return ksp.SignHash(provider, handle, nullptr, data, length, out, room, result, NCRYPT_SILENT_FLAG | BCRYPT_PAD_PSS);
    };
    EXPECT_EQ(attempt(0, &hash, 1, signature.data(), 128, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(attempt(key, &hash, 1, signature.data(), 128, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(attempt(key, nullptr, 1, signature.data(), 0, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(attempt(key, &hash, 0, signature.data(), 0, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(attempt(key, &hash, 0x80000000, signature.data(), 0, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(attempt(key, &hash, 1, signature.data(), 0x80000000, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(attempt(key, &hash, 1, signature.data(), 127, &size), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 128u);
    EXPECT_EQ(attempt(key, &hash, 1, signature.data(), 128, &size), NTE_SILENT_CONTEXT);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

using KspVerify = KspTest;

TEST_F(KspVerify, TokenIsGivenTheKeysOwnAlgorithmFirst)
{
    for (const std::uint32_t algorithm : {algorithmRsa3072, algorithmP384}) {
        const QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithm);
        const bool der = algorithm == algorithmP384;
        const Bytes sent = der ? Bytes(publicKeyOf(pair).begin(), publicKeyOf(pair).end()) : rawModulusToDer(publicKeyOf(pair));
        const auto key = opened(pair);
        GuardedBuffer hash(Bytes{1, 2});
        GuardedBuffer signature(Bytes{3, 4, 5});
        const auto verify = [&] { return ksp.VerifySignature(provider, key, nullptr, hash.data(), 2, signature.data(), 3, 0); };
        EXPECT_EQ(verify(), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre("verifySignatureHash(" + std::to_string(algorithm) + ", TOKEN-1, 0102, " +
                                                   hexText(sent) + ", 030405)"));
        expectLog({debug("KSPVerifySignature"),
                   debug(der ? "KSP: Public key is already DER encoded" : "KSP: Public key is raw modulus, converting to DER"),
                   debug("KSP: VerifySignature - hash length: 2"),
                   debug("KSP: VerifySignature - public key length: " + std::to_string(sent.size())),
                   debug("KSP: VerifySignature - signature length: 3"), debug("KSP: Verify signature success")});
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
    const auto verify = [&](NCRYPT_KEY_HANDLE handle, PBYTE hash, DWORD hashLength, PBYTE signature, DWORD length) {
        return ksp.VerifySignature(provider, handle, nullptr, hash, hashLength, signature, length, 0);
    };
    EXPECT_EQ(verify(0, &byte, 1, &byte, 1), NTE_INVALID_HANDLE);
    EXPECT_EQ(verify(key, nullptr, 1, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(key, &byte, 0, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(key, &byte, 1, nullptr, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(key, &byte, 1, &byte, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(key, &byte, 0x80000000, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(verify(key, &byte, 1, &byte, 0x80000000), NTE_INVALID_PARAMETER);
    forget();
    EXPECT_EQ(verify(key, &byte, 1, &byte, 1), NTE_BAD_KEY);
    expectLog({debug("KSPVerifySignature"), error("KSP: No public key for verification")});
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
