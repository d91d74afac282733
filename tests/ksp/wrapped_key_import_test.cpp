#include "ksp/ksp_test.h"

#include <algorithm>

namespace quelta::test {

using ::testing::ElementsAre;

using KspWrappedKeyImport = KspTest;

TEST_F(KspWrappedKeyImport, UnwrappedKeyIsStoredByTheCodeOfItsLengthAndFailuresAreToldApart)
{
    cachePin();
    NCRYPT_KEY_HANDLE handle = 7;
    const auto unwrap = [&] { return import(L"OpaqueKeyBlob", {9, 8, 7}, handle); };
    token.withAesKey(encryptionTripleDes);
    EXPECT_EQ(unwrap(), NTE_BAD_KEY);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes128);
    for (const auto& [reported, null] : {std::pair(16, true), {-1, false}, {129, false}}) {
        token.unwrapped = {.bytes = counting(16), .reportedLength = reported, .nullBuffer = null};
        EXPECT_EQ(unwrap(), NTE_BAD_DATA) << reported;
    }
    token.unwrapped = {};
    token.willAnswer(Call::importAesKey, 3);
    EXPECT_EQ(unwrap(), NTE_BAD_TYPE);
    EXPECT_EQ(handle, 7u);

    for (const auto& [size, code] : {std::pair(24u, "10"), {16u, "8"}}) {
        token.unwrapped.bytes = counting(size);
        token.takeCalls();
        ASSERT_EQ(unwrap(), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre("getAesKeyList(TOKEN-1)", "decryptAes(TOKEN-1, C002, 090807, true, null)",
                                                   "importAesKey(TOKEN-1, 1234, " + hexOf(counting(size)) + ", " + code + ")"));
        EXPECT_EQ(textProperty(owned(handle), L"Name"), L"88888888888888888888888888888888");
    }
}

class KspEncryptedKeyImport : public KspTest {
protected:
    KspEncryptedKeyImport()
    {
        QueltaKeyPair& pair = token.withKeyPair(usageKeyExchange, algorithmRsa2048);
        pair.hardware = 1;
        importKey = opened(pair);
    }

    SECURITY_STATUS decrypt(LPCWSTR type = L"OpaqueTransport") { return import(type, {9, 8, 7}, handle, importKey); }
    static std::string call(const char* data)
    {
        return std::string("decrypt(TOKEN-1, 01010101010101010101010101010101, 1234, ") + data + ", true)";
    }

    NCRYPT_KEY_HANDLE importKey = 0;
    NCRYPT_KEY_HANDLE handle = 7;
};

TEST_F(KspEncryptedKeyImport, ReversedBytesAreTriedBeforeTheGivenOrder)
{
    cachePin();
    for (const int result : {3, 4}) token.willAnswer(Call::decrypt, result);
    EXPECT_EQ(decrypt(), NTE_BAD_DATA);
    EXPECT_EQ(log.takeLines().back(), error("KSP: Encrypted key decryption failed"));
    EXPECT_EQ(handle, 7u);
    token.takeCalls();

    token.plain.bytes = counting(16);
    for (const LPCWSTR type : {L"OpaqueTransport", L"PKCS8_PRIVATEKEY", L"of another kind"}) {
        ASSERT_EQ(decrypt(type), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre(call("070809")));
        owned(handle);
    }
    token.willAnswer(Call::decrypt, 49);
    ASSERT_EQ(decrypt(), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre(call("070809"), call("090807"))) << "an expired sign-on is a failure like any";
    owned(handle);
}

TEST_F(KspEncryptedKeyImport, ClearKeyStaysInTheProcessWithTheCodeOfItsLength)
{
    for (const auto& [size, code] : {std::pair(16u, 8u), {24u, 11u}, {32u, 10u}}) {
        const auto clear = clearKey(counting(size));
        EXPECT_TRUE(std::ranges::equal(kspKeyOf(clear)->symmetricKey.view(), counting(size)));
        EXPECT_EQ(kspKeyOf(clear)->algorithm, code);
        EXPECT_EQ(textProperty(clear, L"Name"), std::wstring(32, L'0'));
        EXPECT_EQ(textProperty(clear, L"ChainingMode"), L"ChainingModeCBC");
    }
}

TEST_F(KspEncryptedKeyImport, ClearKeyOfAnotherLengthIsRefused)
{
    const struct {
        Given plain;
        SECURITY_STATUS status;
    } rows[] = {
        {{counting(0), 0, false}, NTE_NOT_SUPPORTED},   {{counting(17), 17, false}, NTE_NOT_SUPPORTED},
        {{counting(33), 33, false}, NTE_NOT_SUPPORTED}, {{counting(16), -16, false}, NTE_NOT_SUPPORTED},
        {{counting(16), 12, true}, NTE_NOT_SUPPORTED},  {{counting(16), 16, true}, NTE_BAD_DATA},
    };
    for (const auto& row : rows) {
        token.plain = row.plain;
        EXPECT_EQ(decrypt(), row.status) << *row.plain.reportedLength;
    }
    EXPECT_EQ(handle, 7u);
}

TEST_F(KspEncryptedKeyImport, WithoutAKeyToDecryptWithTheTypeDecidesTheRefusal)
{
    importKey = 0;
    EXPECT_EQ(decrypt(L"OpaqueTransport"), NTE_BAD_KEY);
    EXPECT_EQ(decrypt(L"PKCS8_PRIVATEKEY"), NTE_BAD_KEY);
    EXPECT_EQ(decrypt(L"opaquetransport"), NTE_NOT_SUPPORTED);
    EXPECT_THAT(token.takeCalls(), testing::IsEmpty());
}

} // namespace quelta::test
