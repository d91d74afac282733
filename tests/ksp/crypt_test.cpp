#include "ksp/ksp_test.h"

#include "encoding/rsa_public_key.h"
#include "token/key_match.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspCrypt : public KspTest {
protected:
    struct Result {
        SECURITY_STATUS status;
        DWORD size;

        friend bool operator==(const Result&, const Result&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Result& result)
        {
            return out << std::hex << static_cast<std::uint32_t>(result.status) << std::dec << " and size " << result.size;
        }
    };
    static constexpr DWORD left = 77;

    Result encrypt(NCRYPT_KEY_HANDLE key, GuardedBuffer& output, DWORD flags = 0)
    {
        GuardedBuffer input(Bytes{1, 2, 3});
        DWORD size = left;
        return {ksp.Encrypt(provider, key, input.data(), 3, nullptr, output.data(), output.length(), &size, flags), size};
    }

    Result decrypt(NCRYPT_KEY_HANDLE key, PBYTE output, DWORD room, DWORD flags = 0)
    {
        GuardedBuffer input(counting(32, 0x40));
        DWORD size = left;
        return {ksp.Decrypt(provider, key, input.data(), 32, nullptr, output, room, &size, flags), size};
    }

    static std::string symmetricCall(const char* iv)
    {
        return "decryptSymetric(TOKEN-1, " + hexText(counting(32, 0x40)) + ", " + iv + ", " + hexText(counting(16)) + ")";
    }
};

TEST_F(KspCrypt, EncryptionTellsTheTokenSizePaddingAndDerKey)
{
    knowPin();
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
        const bool der = row.algorithm == algorithmP256;
        const Bytes sent = der ? Bytes(publicKeyOf(pair).begin(), publicKeyOf(pair).end()) : rawModulusToDer(publicKeyOf(pair));
        const auto key = opened(pair);
        GuardedBuffer output(512);
        EXPECT_EQ(encrypt(key, output, row.flags), (Result{0, 256})) << row.codes;
        EXPECT_EQ(output.first(256), counting(256));
        EXPECT_THAT(token.takeCalls(), ElementsAre(std::string("encrypt(") + row.codes + ", 010203, " + hexText(sent) + ")"));
        expectLog({debug("KSPEncrypt"), debug("KSP: PIN already validated"),
                   debug(der ? "KSP: Public key is already DER encoded" : "KSP: Public key is raw modulus, converting to DER"),
                   debug("KSP: Encrypt success")});
    }
}

TEST_F(KspCrypt, CipherLongerThanTheCallersBufferIsNotWritten)
{
    knowPin();
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    GuardedBuffer output(200);
    token.cipher.bytes = counting(1024);
    EXPECT_EQ(encrypt(key, output), (Result{NTE_BUFFER_TOO_SMALL, 1024}));
    EXPECT_TRUE(output.untouchedFrom(0));
    forget();
    for (const int lie : {-1, 1025, INT_MAX}) {
        token.cipher.reportedLength = lie;
        EXPECT_EQ(encrypt(key, output), (Result{NTE_INTERNAL_ERROR, left})) << lie;
        EXPECT_EQ(log.takeLines().back(), error("KSP: Encrypt failed: 0"));
    }
    token.willAnswer(Call::encrypt, 49);
    EXPECT_EQ(encrypt(key, output), (Result{NTE_INTERNAL_ERROR, left}));
    EXPECT_EQ(log.takeLines().back(), error("KSP: Encrypt failed: 49"));
    EXPECT_TRUE(output.untouchedFrom(0));
}

TEST_F(KspCrypt, EncryptionIsRefusedInTheOrderOfItsChecks)
{
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    GuardedBuffer output(128);
    BYTE input = 1;
    DWORD size = left;
    const auto call = [&](NCRYPT_KEY_HANDLE handle, PBYTE data, DWORD length, PBYTE out, DWORD room, DWORD* result) {
        return ksp.Encrypt(provider, handle, data, length, nullptr, out, room, result, NCRYPT_SILENT_FLAG);
    };
    EXPECT_EQ(call(0, &input, 1, output.data(), 128, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &input, 1, output.data(), 128, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(size, left);
    EXPECT_EQ(call(key, nullptr, 0, nullptr, 0, &size), 0);
    EXPECT_EQ(size, 128u);
    size = left;
    EXPECT_EQ(call(key, nullptr, 0, output.data(), 127, &size), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 128u);
    EXPECT_EQ(call(key, nullptr, 1, output.data(), 128, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &input, 0, output.data(), 128, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &input, 0x80000000, output.data(), 128, &size), NTE_INVALID_PARAMETER);
    token.openSingleSignOn();
    EXPECT_EQ(call(key, &input, 1, output.data(), 128, &size), NTE_SILENT_CONTEXT) << "an open sign-on does not count";
    EXPECT_THAT(token.takeCalls(), IsEmpty());
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
    EXPECT_EQ(decrypt(key, output.data(), 10), (Result{0, 10}));
    EXPECT_EQ(output.bytes(), Bytes({'p', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't'}));
    const auto call = [](const char* pin) {
        return std::string("decrypt(TOKEN-1, 01010101010101010101010101010101, ") + pin + ", " + hexText(counting(32, 0x40)) +
               ", true)";
    };
    EXPECT_THAT(token.takeDeeds(), ElementsAre(call("old"), "validatePassword(TOKEN-1, 1234, 1, 0)", call("1234")));
    const auto lines = log.takeLines();
    EXPECT_EQ(lines.at(2), debug("KSP: Decrypt SSO expired, re-prompting for PIN"));
    EXPECT_EQ(lines.back(), debug("KSP: Decrypt success"));

    GuardedBuffer tooShort(9);
    EXPECT_EQ(decrypt(key, tooShort.data(), 9), (Result{NTE_BUFFER_TOO_SMALL, 10}));
    EXPECT_TRUE(tooShort.untouchedFrom(0));
    token.willAnswer(Call::decrypt, 49);
    user.cancels();
    EXPECT_EQ(decrypt(key, output.data(), 10), (Result{NTE_FAIL, left}));
}

TEST_F(KspCrypt, PlainTextThatCannotBeIsAFailure)
{
    knowPin();
    const auto pair = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    const auto symmetric = clearKey(counting(16));
    GuardedBuffer output(64);
    for (const int lie : {-1, 33}) {
        token.plain = {.bytes = counting(32), .reportedLength = lie};
        token.symmetricPlain = {.bytes = {}, .reportedLength = lie};
        EXPECT_EQ(decrypt(pair, output.data(), 64), (Result{NTE_INTERNAL_ERROR, left})) << lie;
        EXPECT_EQ(log.takeLines().back(), error("KSP: Decrypt failed: 0"));
        EXPECT_EQ(decrypt(symmetric, output.data(), 64), (Result{NTE_INTERNAL_ERROR, left})) << lie;
        EXPECT_EQ(log.takeLines().back(), error("KSP: Symmetric decryption failed: 0"));
    }
    token.plain = {.bytes = counting(3), .reportedLength = {}, .nullBuffer = true};
    EXPECT_EQ(decrypt(pair, output.data(), 64), (Result{NTE_INTERNAL_ERROR, left}));
    token.willAnswer(Call::decryptSymetric, 49);
    EXPECT_EQ(decrypt(symmetric, output.data(), 64), (Result{NTE_INTERNAL_ERROR, left}));
    EXPECT_EQ(log.takeLines().back(), error("KSP: Symmetric decryption failed: 49")) << "no second try";
    EXPECT_TRUE(output.untouchedFrom(0));
}

TEST_F(KspCrypt, SymmetricDecryptionUsesTheSharedVectorInCbcOnly)
{
    knowPin();
    const auto key = clearKey(counting(16));
    EXPECT_EQ(setProperty(key, L"IV", counting(16, 0x20)), 0);
    token.symmetricPlain.bytes = counting(20);
    GuardedBuffer output(20);
    forget();
    EXPECT_EQ(decrypt(key, output.data(), 20), (Result{0, 20}));
    EXPECT_EQ(output.bytes(), counting(20));
    EXPECT_THAT(token.takeCalls(), ElementsAre(symmetricCall("202122232425262728292A2B2C2D2E2F")));
    const LogLine keyLine = debug("KSP: Decrypt input key : " + hexText(counting(16)));
    expectLog({debug("KSPDecrypt"), debug("KSP: PIN already validated"), debug("KSP: Symmetric decrypt CBC mode"),
               debug("KSP: Decrypt input iv : 202122232425262728292A2B2C2D2E2F"), keyLine,
               debug("KSP: Symmetric decrypt success, length: 20")});

    EXPECT_EQ(setProperty(key, L"ChainingMode", wideBytes(L"ChainingModeECB")), 0);
    forget();
    EXPECT_EQ(decrypt(key, nullptr, 20), (Result{0, 20})) << "asking for the size decrypts";
    EXPECT_EQ(decrypt(key, output.data(), 19), (Result{NTE_BUFFER_TOO_SMALL, 20}));
    EXPECT_THAT(token.takeCalls(), testing::Each(symmetricCall("null")));
    const LogLine noRoom = debug("pbOutput == NULL ");
    const LogLine iv = debug("KSP: Decrypt input iv : ");
    const LogLine ecb = debug("KSP: Symmetric decrypt ECB mode");
    expectLog({debug("KSPDecrypt"), debug("KSP: PIN already validated"), ecb, iv, keyLine, noRoom, debug("KSPDecrypt"),
               debug("KSP: PIN already validated"), ecb, iv, keyLine, noRoom});
}

TEST_F(KspCrypt, DecryptionIsRefusedInTheOrderOfItsChecks)
{
    const auto key = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    const auto symmetric = clearKey(counting(16));
    BYTE byte = 1;
    DWORD size = left;
    const auto call = [&](NCRYPT_KEY_HANDLE handle, PBYTE data, DWORD length, PBYTE out, DWORD* result) {
        return ksp.Decrypt(provider, handle, data, length, nullptr, out, 1, result, NCRYPT_SILENT_FLAG);
    };
    EXPECT_EQ(call(0, &byte, 1, &byte, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &byte, 1, &byte, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_EQ(size, left);
    EXPECT_EQ(call(key, nullptr, 0, nullptr, &size), 0);
    EXPECT_EQ(size, 256u);
    EXPECT_EQ(call(symmetric, nullptr, 0, nullptr, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, nullptr, 1, &byte, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &byte, 0, &byte, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &byte, 0x80000000, &byte, &size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(key, &byte, 1, &byte, &size), NTE_SILENT_CONTEXT);
    EXPECT_EQ(call(symmetric, &byte, 1, nullptr, &size), NTE_SILENT_CONTEXT);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    user.cancels();
    EXPECT_EQ(decrypt(symmetric, nullptr, 0), (Result{NTE_FAIL, left}));
}

} // namespace quelta::test
