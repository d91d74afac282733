#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::Pair;

class KspCrypt : public KspTest {
protected:
    using Result = std::pair<SECURITY_STATUS, DWORD>;
    static constexpr DWORD left = 77;

    Result encrypt(NCRYPT_KEY_HANDLE key, GuardedBuffer& output, DWORD flags = 0)
    {
        GuardedBuffer input(Bytes{1, 2, 3});
        DWORD size = left;
        const auto status = ksp.Encrypt(provider, key, input.data(), 3, nullptr, output.data(), output.length(), &size, flags);
        return {status, size};
    }

    Result decrypt(NCRYPT_KEY_HANDLE key, PBYTE output, DWORD room)
    {
        GuardedBuffer input(counting(32, 0x40));
        DWORD size = left;
        const auto status = ksp.Decrypt(provider, key, input.data(), 32, nullptr, output, room, &size, 0);
        return {status, size};
    }

    static std::string symmetricCall(const char* iv)
    {
        return "decryptSymetric(TOKEN-1, " + hexOf(counting(32, 0x40)) + ", " + iv + ", " + hexOf(counting(16)) + ")";
    }
};

TEST_F(KspCrypt, ImpossibleInputIsRefusedBeforeThePinIsAskedFor)
{
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    const auto symmetric = clearKey(counting(16));
    token.openSingleSignOn();
    using Run = std::function<SECURITY_STATUS(NCRYPT_KEY_HANDLE, PBYTE, DWORD, PBYTE, DWORD, DWORD*)>;
    const auto crypt = [&](auto slot) -> Run {
        return [=, this](NCRYPT_KEY_HANDLE handle, PBYTE data, DWORD length, PBYTE out, DWORD room, DWORD* size) {
            return slot(provider, handle, data, length, nullptr, out, room, size, NCRYPT_SILENT_FLAG);
        };
    };
    const Run sign = [&](NCRYPT_KEY_HANDLE handle, PBYTE data, DWORD length, PBYTE out, DWORD room, DWORD* size) {
        return ksp.SignHash(provider, handle, nullptr, data, length, out, room, size, NCRYPT_SILENT_FLAG | BCRYPT_PAD_PSS);
    };
    GuardedBuffer output(128);
    BYTE input = 1;
    for (const Run& run : {crypt(ksp.Encrypt), crypt(ksp.Decrypt), sign}) {
        DWORD size = left;
        EXPECT_EQ(run(0, &input, 1, output.data(), 128, &size), NTE_INVALID_PARAMETER);
        EXPECT_EQ(run(key, &input, 1, output.data(), 128, nullptr), NTE_INVALID_PARAMETER);
        EXPECT_EQ(run(key, nullptr, 1, output.data(), 128, &size), NTE_INVALID_PARAMETER);
        for (const DWORD length : {DWORD{0}, DWORD{0x80000000}}) {
            EXPECT_EQ(run(key, &input, length, output.data(), 128, &size), NTE_INVALID_PARAMETER);
        }
        EXPECT_EQ(run(key, &input, 1, output.data(), 128, &size), NTE_SILENT_CONTEXT) << "an open sign-on does not count";
        EXPECT_EQ(size, left);
        EXPECT_EQ(run(key, nullptr, 0, nullptr, 0, &size), 0);
        EXPECT_EQ(size, 128u);
    }
    DWORD size = left;
    EXPECT_EQ(sign(key, &input, 1, output.data(), 0x80000000, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(crypt(ksp.Decrypt)(symmetric, nullptr, 0, nullptr, 0, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(crypt(ksp.Decrypt)(symmetric, &input, 1, nullptr, 0, &size), NTE_SILENT_CONTEXT);
    EXPECT_EQ(size, left);
    for (const Run& run : {crypt(ksp.Encrypt), sign}) {
        size = left;
        EXPECT_EQ(run(key, &input, 1, output.data(), 127, &size), NTE_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 128u);
    }
    EXPECT_THAT(token.takeCalls(), testing::IsEmpty());
}

TEST_F(KspCrypt, EncryptionTellsTheTokenSizePaddingAndDerKey)
{
    cachePin();
    const struct {
        std::uint32_t algorithm;
        DWORD flags;
        const char* codes;
    } rows[] = {
        {algorithmRsa1024, NCRYPT_PAD_PKCS1_FLAG, "7, 1"},
        {algorithmRsa2048, 0, "8, 1"},
        {algorithmRsa3072, NCRYPT_PAD_OAEP_FLAG, "9, 4"},
        {algorithmRsa4096, NCRYPT_PAD_OAEP_FLAG | NCRYPT_PAD_PKCS1_FLAG, "10, 4"},
        {algorithmP256, 0, "8, 1"},
    };
    for (const auto& row : rows) {
        const QueltaKeyPair& pair = token.withKeyPair(usageBoth, row.algorithm);
        const auto key = opened(pair);
        GuardedBuffer output(512);
        EXPECT_THAT(encrypt(key, output, row.flags), Pair(0, 256u)) << row.codes;
        EXPECT_EQ(output.first(256), counting(256));
        EXPECT_THAT(token.takeCalls(),
                    ElementsAre(std::string("encrypt(") + row.codes + ", 010203, " + hexOf(publicKeyForToken(pair)) + ")"));
    }
}

TEST_F(KspCrypt, CipherLongerThanTheCallersBufferIsNotWritten)
{
    cachePin();
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    GuardedBuffer output(200);
    token.cipher.bytes = counting(1024);
    EXPECT_THAT(encrypt(key, output), Pair(NTE_BUFFER_TOO_SMALL, 1024u));
    for (const int lie : {-1, 1025, INT_MAX}) {
        token.cipher.reportedLength = lie;
        EXPECT_THAT(encrypt(key, output), Pair(NTE_INTERNAL_ERROR, left)) << lie;
    }
    token.willAnswer(Call::encrypt, 49);
    EXPECT_THAT(encrypt(key, output), Pair(NTE_INTERNAL_ERROR, left));
    EXPECT_EQ(log.takeLines().back(), error("KSP: Encrypt failed: 49"));
    EXPECT_TRUE(output.untouchedFrom(0));
}

TEST_F(KspCrypt, DecryptionGivesThePlainTextAndRenewsAnExpiredPinOnce)
{
    QueltaKeyPair& pair = token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    pair.hardware = 1;
    const auto key = opened(pair);
    tokenState().pinCache.setValidated(std::make_shared<const PinText>("old"));
    token.willAnswer(Call::decrypt, 49);
    user.entersPin("1234");
    GuardedBuffer output(10);
    EXPECT_THAT(decrypt(key, output.data(), 10), Pair(0, 10u));
    EXPECT_EQ(output.bytes(), Bytes({'p', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't'}));
    const auto call = [](const char* pin) {
        return std::string("decrypt(TOKEN-1, 01010101010101010101010101010101, ") + pin + ", " + hexOf(counting(32, 0x40)) +
               ", true)";
    };
    EXPECT_THAT(token.takeDeeds(), ElementsAre(call("old"), "validatePassword(TOKEN-1, 1234, 1, 0)", call("1234")));

    GuardedBuffer tooShort(9);
    EXPECT_THAT(decrypt(key, tooShort.data(), 9), Pair(NTE_BUFFER_TOO_SMALL, 10u));
    EXPECT_TRUE(tooShort.untouchedFrom(0));
    token.willAnswer(Call::decrypt, 49);
    user.cancels();
    EXPECT_THAT(decrypt(key, output.data(), 10), Pair(NTE_FAIL, left));
}

TEST_F(KspCrypt, PlainTextThatCannotBeIsAFailure)
{
    cachePin();
    const auto pair = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    const auto symmetric = clearKey(counting(16));
    GuardedBuffer output(64);
    for (const int lie : {-1, 33}) {
        token.plain = {.bytes = counting(32), .reportedLength = lie};
        token.symmetricPlain = {.bytes = {}, .reportedLength = lie};
        EXPECT_THAT(decrypt(pair, output.data(), 64), Pair(NTE_INTERNAL_ERROR, left)) << lie;
        EXPECT_THAT(decrypt(symmetric, output.data(), 64), Pair(NTE_INTERNAL_ERROR, left)) << lie;
    }
    token.plain = {.bytes = counting(3), .reportedLength = {}, .nullBuffer = true};
    EXPECT_THAT(decrypt(pair, output.data(), 64), Pair(NTE_INTERNAL_ERROR, left));
    token.willAnswer(Call::decryptSymetric, 49);
    EXPECT_THAT(decrypt(symmetric, output.data(), 64), Pair(NTE_INTERNAL_ERROR, left)) << "no second try";
    EXPECT_TRUE(output.untouchedFrom(0));
}

TEST_F(KspCrypt, SymmetricDecryptionUsesTheSharedVectorInCbcOnly)
{
    const auto key = clearKey(counting(16));
    user.cancels();
    EXPECT_THAT(decrypt(key, nullptr, 0), Pair(NTE_FAIL, left));
    cachePin();
    EXPECT_EQ(setProperty(key, L"IV", counting(16, 0x20)), 0);
    token.symmetricPlain.bytes = counting(20);
    GuardedBuffer output(20);
    token.takeCalls();
    EXPECT_THAT(decrypt(key, output.data(), 20), Pair(0, 20u));
    EXPECT_EQ(output.bytes(), counting(20));
    EXPECT_THAT(token.takeCalls(), ElementsAre(symmetricCall("202122232425262728292A2B2C2D2E2F")));

    EXPECT_EQ(setProperty(key, L"ChainingMode", wideBytes(L"ChainingModeECB")), 0);
    EXPECT_THAT(decrypt(key, nullptr, 20), Pair(0, 20u)) << "asking for the size decrypts";
    EXPECT_THAT(decrypt(key, output.data(), 19), Pair(NTE_BUFFER_TOO_SMALL, 20u));
    EXPECT_THAT(token.takeCalls(), ElementsAre(symmetricCall("null"), symmetricCall("null")));
    EXPECT_EQ(log.takeLines().back(), debug("pbOutput == NULL ")) << "though there was a buffer, only too short";
}

} // namespace quelta::test
