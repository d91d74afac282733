#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspWrappedKeyImport : public KspTest {
protected:
    SECURITY_STATUS unwrap() { return import(L"OpaqueKeyBlob", {9, 8, 7}, handle); }

    NCRYPT_KEY_HANDLE handle = 7;
    const LogLine slot = debug("KSPImportKey");
    const LogLine length = debug("KSP: BCRYPT_OPAQUE_KEY_BLOB: wrapped key length = 3");
    const LogLine secondFits = debug("KSP: Successfully unwrapped key with KEK: E2E2E2E2E2E2E2E2E2E2E2E2E2E2E2E2");
};

TEST_F(KspWrappedKeyImport, FirstAesKeyThatUnwrapsWins)
{
    knowPin();
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes128);
    token.aesKeys.front().encryptionType = 9;
    token.unwrapped.bytes = counting(24);
    ASSERT_EQ(unwrap(), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre("getAesKeyList(TOKEN-1)", "decryptAes(TOKEN-1, C002, 090807, true, null)",
                                               "importAesKey(TOKEN-1, 1234, " + hexText(counting(24)) + ", 10)"));
    expectLog({slot, length, secondFits, debug("KSP: BCRYPT_OPAQUE_KEY_BLOB imported successfully")});
    EXPECT_EQ(textProperty(owned(handle), L"Name"), L"88888888888888888888888888888888");

    token.willAnswer(Call::decryptAes, 3);
    token.unwrapped.bytes = counting(16);
    ASSERT_EQ(unwrap(), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre("getAesKeyList(TOKEN-1)", "decryptAes(TOKEN-1, C002, 090807, true, null)",
                                               "decryptAes(TOKEN-1, C003, 090807, false, null)",
                                               "importAesKey(TOKEN-1, 1234, " + hexText(counting(16)) + ", 8)"));
    owned(handle);
}

TEST_F(KspWrappedKeyImport, NoKeyThatCouldUnwrapIsTold)
{
    token.withAesKey(encryptionTripleDes);
    EXPECT_EQ(unwrap(), NTE_BAD_KEY);
    EXPECT_THAT(token.takeCalls(), ElementsAre("getAesKeyList(TOKEN-1)"));
    expectLog({slot, length, error("KSP: Failed to unwrap BCRYPT_OPAQUE_KEY_BLOB with any available KEK")});
    EXPECT_EQ(handle, 7u);
}

TEST_F(KspWrappedKeyImport, KeyThatUnwrapsToNothingUsableEndsTheSearch)
{
    const struct {
        int reported;
        bool null;
    } rows[] = {{16, true}, {-1, false}, {129, false}};
    for (const auto& row : rows) {
        token.aesKeys.clear();
        token.withAesKey(7);
        token.withAesKey(encryptionAes128);
        token.withAesKey(encryptionAes128);
        token.unwrapped = {.bytes = counting(16), .reportedLength = row.reported, .nullBuffer = row.null};
        forget();
        EXPECT_EQ(unwrap(), NTE_BAD_DATA) << row.reported;
        EXPECT_THAT(token.takeCalls(), ElementsAre("getAesKeyList(TOKEN-1)", "decryptAes(TOKEN-1, C002, 090807, false, null)"));
        expectLog({slot, length, secondFits});
    }
    EXPECT_EQ(handle, 7u);
}

TEST_F(KspWrappedKeyImport, KeyThatTheTokenWillNotStoreIsNotHandedOut)
{
    token.withAesKey(7);
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::importAesKey, 3);
    EXPECT_EQ(unwrap(), NTE_BAD_TYPE);
    expectLog({slot, length, secondFits, error("KSP: Import of unwrapped AES key failed")});
    EXPECT_EQ(handle, 7u);
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
    const LogLine slot = debug("KSPImportKey");
    const LogLine keyId = debug("KSP: Input key id : 01010101010101010101010101010101");
    const LogLine reversedFailed = error("KSP: Decryption with reversed data failed, trying original");
};

TEST_F(KspEncryptedKeyImport, ReversedBytesAreTriedBeforeTheGivenOrder)
{
    knowPin();
    token.plain.bytes = counting(16);
    for (const LPCWSTR type : {L"OpaqueTransport", L"PKCS8_PRIVATEKEY", L"of another kind"}) {
        ASSERT_EQ(decrypt(type), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre(call("070809")));
        expectLog({slot, keyId, debug("KSP: Encrypted key imported successfully")});
        owned(handle);
    }
    token.willAnswer(Call::decrypt, 49);
    ASSERT_EQ(decrypt(), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre(call("070809"), call("090807"))) << "an expired sign-on is a failure like any";
    expectLog({slot, keyId, reversedFailed, debug("KSP: Encrypted key imported successfully")});
    owned(handle);

    handle = 7;
    for (const int result : {3, 4}) token.willAnswer(Call::decrypt, result);
    EXPECT_EQ(decrypt(), NTE_BAD_DATA);
    expectLog({slot, keyId, reversedFailed, error("KSP: Encrypted key decryption failed")});
    EXPECT_EQ(handle, 7u);
}

TEST_F(KspEncryptedKeyImport, ClearKeyStaysInTheProcessWithTheCodeOfItsLength)
{
    knowPin();
    const struct {
        std::size_t size;
        std::uint32_t code;
    } rows[] = {{16, 8}, {24, 11}, {32, 10}};
    for (const auto& row : rows) {
        const auto imported = clearKey(counting(row.size));
        const KspKey& key = *kspKeyOf(imported);
        EXPECT_TRUE(std::ranges::equal(key.symmetricKey.view(), counting(row.size)));
        EXPECT_EQ(key.algorithm, row.code);
        EXPECT_EQ(textProperty(imported, L"Name"), std::wstring(32, L'0'));
        EXPECT_EQ(textProperty(imported, L"ChainingMode"), L"ChainingModeCBC");
    }
}

TEST_F(KspEncryptedKeyImport, ClearKeyOfAnotherLengthIsRefused)
{
    const std::optional<int> itsOwn;
    const struct {
        Given plain;
        SECURITY_STATUS status;
        const char* refusal;
    } rows[] = {
        {{counting(0), itsOwn, false}, NTE_NOT_SUPPORTED, "KSP: Unsupported decrypted key length: 0"},
        {{counting(17), itsOwn, false}, NTE_NOT_SUPPORTED, "KSP: Unsupported decrypted key length: 17"},
        {{counting(33), itsOwn, false}, NTE_NOT_SUPPORTED, "KSP: Unsupported decrypted key length: 33"},
        {{counting(16), -16, false}, NTE_NOT_SUPPORTED, "KSP: Unsupported decrypted key length: -16"},
        {{counting(16), 12, true}, NTE_NOT_SUPPORTED, "KSP: Unsupported decrypted key length: 12"},
        {{counting(16), 16, true}, NTE_BAD_DATA, nullptr},
    };
    for (const auto& row : rows) {
        token.plain = row.plain;
        EXPECT_EQ(decrypt(), row.status);
        std::vector<LogLine> lines = {slot, keyId};
        if (row.refusal) lines.push_back(error(row.refusal));
        expectLog(lines);
    }
    EXPECT_EQ(handle, 7u);
}

TEST_F(KspEncryptedKeyImport, WithoutAKeyToDecryptWithTheTypeDecidesTheRefusal)
{
    importKey = 0;
    EXPECT_EQ(decrypt(L"OpaqueTransport"), NTE_BAD_KEY);
    EXPECT_EQ(decrypt(L"PKCS8_PRIVATEKEY"), NTE_BAD_KEY);
    EXPECT_EQ(decrypt(L"opaquetransport"), NTE_NOT_SUPPORTED);
    const LogLine needsKey = error("KSP: Encrypted key import requires import key handle");
    expectLog({slot, needsKey, slot, needsKey, slot, error("KSP: Unsupported blob type for import")});
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
