#include "csp/csp_test.h"

#include "csp/key_context.h"
#include "encoding/rsa_public_key.h"

#include <climits>

namespace quelta::test {

namespace {

constexpr BYTE wrapBlob = 11;

Bytes publicBlob(DWORD bits, std::size_t present, DWORD exponent = 65537)
{
    return keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX,
                   concat({littleEndian({0x31415352}), littleEndian({bits}), littleEndian({exponent}), counting(present)}));
}

// For blobs that are too short to be public keys, on a token without AES keys.
Called<BOOL> expectedOf(BYTE type, std::size_t size)
{
    if (size < 12) return failedWith(NTE_BAD_DATA);
    if (size == 12) return failedWith(NTE_INVALID_PARAMETER);
    switch (type) {
    case SIMPLEBLOB:
    case PLAINTEXTKEYBLOB: return succeeded();
    case PUBLICKEYBLOB: return failedWith(NTE_BAD_DATA);
    case wrapBlob: return failedWith(NTE_BAD_KEY);
    default: return failedWith(NTE_BAD_TYPE);
    }
}

} // namespace

class ImportKey : public CspTest {
protected:
    ImportKey() : prov(acquire()) { cachePin(); }

    Called<BOOL> import(const Bytes& blob, HCRYPTKEY with = 0)
    {
        const GuardedBuffer data(blob);
        handle = untouchedHandle;
        const auto answer = callWithLastError([&] { return CPImportKey(prov, data.data(), data.length(), with, 3, &handle); });
        if (answer.result) ownsKey(handle);
        EXPECT_EQ(handle == untouchedHandle, !answer.result);
        return answer;
    }
    const KeyContext& key() const { return *keyOf(handle); }

    HCRYPTPROV prov;
    HCRYPTKEY handle = 0;
};

TEST_F(ImportKey, BlobsOfEveryTypeAndLengthAreReadNoFurtherThanTheyGo)
{
    token.withKeyPair(usageKeyExchange, algorithmRsa1024);
    token.plain.bytes = Bytes{1};
    const HCRYPTKEY with = userKey(prov, AT_KEYEXCHANGE);
    for (const BYTE type : Bytes{0, 1, 2, 5, 6, 7, 8, 9, 10, 11, 12, 255}) {
        for (std::size_t size = 0; size <= 24; ++size) {
            Bytes blob = keyBlob(type, CALG_AES_128, Bytes(16, 0x11));
            blob.resize(size);
            EXPECT_EQ(import(blob, with), expectedOf(type, size)) << "type " << int{type} << ", " << size << " bytes";
        }
    }
    const Bytes blob = keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20));
    token.takeCalls();
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPImportKey(prov, nullptr, 28, 0, 0, &handle); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPImportKey(prov, blob.data(), 0x80000000, 0, 0, &handle); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPImportKey(prov, blob.data(), 28, 0, 0, nullptr); });
    EXPECT_THAT(token.takeCalls(), IsEmpty()) << "nothing to store, or nowhere to put the handle";
}

TEST_F(ImportKey, PublicKeyMustBeThereAndOfAKnownSize)
{
    for (const auto& [bits, present] :
         {std::pair<DWORD, std::size_t>{1024, 127}, {0xFFFFFFFF, 128}, {0, 0}, {1536, 192}, {256, 32}}) {
        EXPECT_EQ(import(publicBlob(bits, present)), failedWith(NTE_BAD_DATA)) << bits << " bits, " << present << " bytes";
    }
}

TEST_F(ImportKey, PublicKeyIsTurnedIntoDerAndEncrypts)
{
    for (const DWORD code : {1, 2, 3, 4}) {
        const DWORD bits = 1024 * code;
        ASSERT_EQ(import(concat({publicBlob(bits, bits / 8, 0x00010003), {1, 2, 3}})), succeeded());
        EXPECT_EQ(hexOf(key().publicKey.view()), hexOf(rsaPublicKeyToDer(hexOf(reversed(counting(bits / 8))), "010003")));
        EXPECT_EQ(key().algorithm, code);
        EXPECT_EQ(query(0, [&](auto data, auto size) { return CPEncrypt(prov, handle, 0, TRUE, 0, data, size, 0); }).length,
                  bits / 8);
    }
    EXPECT_THAT(token.takeCalls(), IsEmpty()) << "a public key does not go to the token";
}

TEST_F(ImportKey, PlainKeyIsStoredOnTheTokenAndDescribedByIt)
{
    token.onImportAesKey = [](QueltaSymmetricKey& stored) {
        setReference(stored, counting(128));
        std::ranges::fill(stored.label, 'K');
        stored.usage = 9;
        stored.flag = 1;
    };
    for (const auto& [algorithm, code] : {std::pair<ALG_ID, ALG_ID>{CALG_AES_128, 8}, {CALG_AES_256, 10}}) {
        const Bytes blob = keyBlob(PLAINTEXTKEYBLOB, algorithm, concat({littleEndian({0xFFFFFFFF}), counting(128)}));
        ASSERT_EQ(import(blob), succeeded());
        EXPECT_THAT(token.takeCalls(),
                    ElementsAre("importAesKey(TOKEN-1, 1234, " + hexOf(counting(128)) + ", " + std::to_string(code) + ")"));
        EXPECT_EQ(key().algorithm, code);
        EXPECT_EQ(hexOf(key().keyId) + hexOf(key().objectId.view()), hexOf(Bytes(16, 0x88)) + hexOf(counting(128)));
        EXPECT_EQ(textOf(key().label.view()), std::string(128, 'K'));
        EXPECT_EQ(key().keyUsage + key().keyPairFlag, 9U + 1U);
        EXPECT_TRUE(key().symmetricKey.empty()) << "the value stays on the token";
    }
    EXPECT_EQ(import(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_256, Bytes(4 + 129))), failedWith(NTE_BAD_DATA));
    EXPECT_EQ(import(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_192, Bytes(20))), failedWith(NTE_BAD_ALGID));
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    token.willAnswer(Call::importAesKey, 49);
    EXPECT_EQ(import(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_256, Bytes(36))), failedWith(NTE_BAD_TYPE));
    EXPECT_EQ(token.takeCalls().size(), 1U) << "no retry here";
}

TEST_F(ImportKey, WrappedKeyIsTriedWithEachAesKeyInTurn)
{
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::decryptAes, 11);
    const Bytes blob = keyBlob(wrapBlob, CALG_AES_128, counting(28));
    ASSERT_EQ(import(blob), succeeded());
    const std::string wrapped = hexOf(counting(24)), unwrapped = hexOf(counting(16));
    EXPECT_THAT(token.takeDeeds(), ElementsAre("decryptAes(TOKEN-1, C002, " + wrapped + ", false, null)",
                                               "decryptAes(TOKEN-1, C003, " + wrapped + ", true, null)",
                                               "importAesKey(TOKEN-1, 1234, " + unwrapped + ", 8)"));
    EXPECT_EQ(key().algorithm, ALG_ID{CALG_AES_128}) << "the blob's own";
    EXPECT_EQ(import(keyBlob(wrapBlob, 0x1234, counting(5))), succeeded());
    EXPECT_THAT(token.takeDeeds(),
                ElementsAre("decryptAes(TOKEN-1, C002, 01, false, null)", "importAesKey(TOKEN-1, 1234, " + unwrapped + ", 10)"));
}

TEST_F(ImportKey, WrappedKeyFailsByTheStepThatFailed)
{
    const Bytes blob = keyBlob(wrapBlob, CALG_AES_256, counting(28));
    const auto expectRefused = [&](auto code, std::size_t calls) {
        EXPECT_EQ(import(blob), failedWith(code));
        EXPECT_EQ(token.takeDeeds().size(), calls);
    };
    token.withAesKey(encryptionTripleDes);
    expectRefused(NTE_BAD_KEY, 0);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::importAesKey, 6);
    expectRefused(NTE_BAD_TYPE, 2);
    for (const auto& [reported, code] :
         {std::pair{-1, NTE_PROVIDER_DLL_FAIL}, {INT_MIN, NTE_PROVIDER_DLL_FAIL}, {129, NTE_BAD_DATA}, {INT_MAX, NTE_BAD_DATA}}) {
        token.unwrapped.reportedLength = reported;
        expectRefused(code, 1);
    }
    token.unwrapped.reportedLength.reset();
    token.unwrapped.nullBuffer = true;
    expectRefused(NTE_PROVIDER_DLL_FAIL, 1);
    token.willAnswer(Call::decryptAes, 1);
    token.willAnswer(Call::decryptAes, 1);
    expectRefused(NTE_BAD_KEY, 2);
}

TEST_F(ImportKey, EncryptedKeyIsTriedTurnedAndThenAsItIs)
{
    const std::string name = keyName(token.withKeyPair(usageKeyExchange, algorithmRsa1024));
    token.keyPairs[0].hardware = 1;
    const HCRYPTKEY with = userKey(prov, AT_KEYEXCHANGE);
    const auto call = [&](const Bytes& bytes) { return "decrypt(TOKEN-1, " + name + ", 1234, " + hexOf(bytes) + ", true)"; };
    const Bytes encrypted = counting(128);
    const auto blobOf = [&](ALG_ID algorithm) { return keyBlob(SIMPLEBLOB, algorithm, concat({Bytes(4), encrypted})); };
    for (const auto& [algorithm, code] : {std::pair<ALG_ID, ALG_ID>{CALG_3DES, 11}, {CALG_AES_128, 8}, {CALG_AES_256, 10}}) {
        token.plain.bytes = counting(32);
        ASSERT_EQ(import(blobOf(algorithm), with), succeeded());
        EXPECT_THAT(token.takeCalls(), ElementsAre(call(reversed(encrypted))));
        EXPECT_EQ(key().algorithm, code);
        EXPECT_EQ(hexOf(key().symmetricKey.view()), hexOf(counting(32)));
    }
    token.willAnswer(Call::decrypt, 49);
    EXPECT_EQ(import(blobOf(CALG_AES_128), with), succeeded());
    EXPECT_THAT(token.takeCalls(), ElementsAre(call(reversed(encrypted)), call(encrypted)));
    token.willAnswer(Call::decrypt, 1);
    token.willAnswer(Call::decrypt, 2);
    EXPECT_EQ(import(blobOf(CALG_AES_128), with), failedWith(sentinelError)) << "no error of its own";
}

TEST_F(ImportKey, EncryptedKeyIsJudgedOnceItIsClear)
{
    const Bytes unknown = keyBlob(SIMPLEBLOB, CALG_AES_192, Bytes(132, 5)),
                known = keyBlob(SIMPLEBLOB, CALG_AES_128, Bytes(132, 5));
    EXPECT_EQ(import(unknown), failedWith(NTE_BAD_TYPE));
    token.withKeyPair(usageKeyExchange, algorithmRsa1024);
    const HCRYPTKEY with = userKey(prov, AT_KEYEXCHANGE);
    EXPECT_EQ(import(unknown, with), failedWith(NTE_BAD_ALGID));
    EXPECT_EQ(token.takeCalls().size(), 1U);
    for (const std::size_t size : {0, 33, 128}) {
        token.plain.bytes = Bytes(size);
        EXPECT_EQ(import(known, with), failedWith(NTE_BAD_DATA)) << size;
    }
    token.takeCalls();
    for (const int reported : {-1, 129, INT_MAX, 16}) {
        token.plain.reportedLength = reported;
        token.plain.nullBuffer = reported == 16;
        EXPECT_EQ(import(known, with), failedWith(NTE_PROVIDER_DLL_FAIL)) << reported;
        EXPECT_EQ(token.takeCalls().size(), 1U) << "no other byte order is tried";
    }
}

} // namespace quelta::test
