#include "ksp/ksp_test.h"

#include <algorithm>

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr std::uint32_t rsaMagic = 0x31415352;
constexpr std::uint32_t keyDataMagic = 0x4D42444B;
constexpr std::uint32_t most = 0xFFFFFFFF;

Bytes publicBlob(std::uint32_t bits, std::size_t modulusSize)
{
    return concat({littleEndian({rsaMagic, bits, 3, static_cast<std::uint32_t>(modulusSize), 0, 0}),
                   {1, 0, 1},
                   counting(modulusSize, 0xC1)});
}

// With a header that says nothing of the kind.
Bytes legacyBlob(std::uint32_t bits, std::size_t modulusSize)
{
    return concat({Bytes(8, 0xFF), littleEndian({rsaMagic, bits, 0x10003}), counting(modulusSize, 0xC1)});
}

Bytes keyData(std::size_t size)
{
    return concat({littleEndian({keyDataMagic, 9, static_cast<std::uint32_t>(size)}), counting(size)});
}

Bytes firstOf(const Bytes& whole, int size)
{
    return {whole.begin(), whole.begin() + size};
}

} // namespace

using KspKeyImport = KspTest;

TEST_F(KspKeyImport, PublicKeyIsKeptAsItStands)
{
    for (const DWORD bits : {1024u, 2048u, 3072u, 4096u}) {
        for (const LPCWSTR type : {L"RSAPUBLICBLOB", L"PUBLICBLOB"}) {
            const auto handle = imported(type, publicBlob(bits, bits / 8));
            const KspKey& key = *kspKeyOf(handle);
            EXPECT_TRUE(std::ranges::equal(key.publicKey.view(), counting(bits / 8, 0xC1)));
            EXPECT_EQ(key.algorithm, bits / 1024);
            EXPECT_EQ(dwordProperty(handle, L"Length"), bits);
            EXPECT_EQ(dwordProperty(handle, L"Key Usage"), 0u);
            EXPECT_EQ(textProperty(handle, L"Name"), std::wstring(32, L'0'));
        }
    }
    EXPECT_EQ(kspKeyOf(imported(L"PUBLICBLOB", publicBlob(2048, 3)))->publicKey.size(), 3u) << "whatever is announced";
}

TEST_F(KspKeyImport, LegacyPublicKeyBecomesDerMostSignificantByteFirst)
{
    for (const DWORD bits : {1024u, 2048u, 3072u}) {
        const Bytes blob = legacyBlob(bits, bits / 8);
        const auto handle = imported(L"CAPIPUBLICBLOB", concat({blob, {1, 2}}));
        const Bytes tail = concat({Bytes(blob.rbegin(), blob.rend() - 20), {2, 3, 1, 0, 3}});
        const ByteView der = kspKeyOf(handle)->publicKey.view();
        ASSERT_GT(der.size(), tail.size());
        EXPECT_TRUE(std::ranges::equal(der.last(tail.size()), tail));
        EXPECT_EQ(kspKeyOf(handle)->algorithm, bits / 1024);
        EXPECT_EQ(dwordProperty(handle, L"Length"), bits);
    }
}

TEST_F(KspKeyImport, BlobsThatDoNotHoldTogetherOrFitAreRefusedBeforeTheToken)
{
    const struct {
        LPCWSTR type;
        Bytes blob;
        SECURITY_STATUS status;
    } rows[] = {
        {L"RSAPUBLICBLOB", firstOf(publicBlob(2048, 256), 282), NTE_BAD_DATA},
        {L"RSAPUBLICBLOB", publicBlob(1536, 192), NTE_NOT_SUPPORTED},
        {L"RSAPUBLICBLOB", publicBlob(1536, 513), NTE_BAD_DATA},
        {L"PUBLICBLOB", concat({littleEndian({rsaMagic, 2048, 1, most, 0, 0}), Bytes(64)}), NTE_BAD_DATA},
        {L"CAPIPUBLICBLOB", firstOf(legacyBlob(1024, 128), 147), NTE_BAD_DATA},
        {L"CAPIPUBLICBLOB", legacyBlob(most, 128), NTE_BAD_DATA},
        {L"CAPIPUBLICBLOB", legacyBlob(1536, 192), NTE_NOT_SUPPORTED},
        {L"CAPIPUBLICBLOB", legacyBlob(7, 0), NTE_NOT_SUPPORTED},
        // The DER form of these is longer than what an import keeps.
        {L"CAPIPUBLICBLOB", legacyBlob(4096, 512), NTE_BAD_DATA},
        {L"CAPIPUBLICBLOB", legacyBlob(8192, 1024), NTE_BAD_DATA},
        {L"KeyDataBlob", keyData(0), NTE_NOT_SUPPORTED},
        {L"KeyDataBlob", keyData(17), NTE_NOT_SUPPORTED},
        {L"KeyDataBlob", keyData(129), NTE_NOT_SUPPORTED},
        {L"KeyDataBlob", concat({littleEndian({keyDataMagic, 1, most - 11}), Bytes(16)}), NTE_BAD_DATA},
    };
    NCRYPT_KEY_HANDLE key = 7;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(import(rows[i].type, rows[i].blob, key), rows[i].status) << "row " << i;
        EXPECT_EQ(key, 7u);
    }
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

TEST_F(KspKeyImport, ClearKeyGoesToTheTokenByTheCodeOfItsLength)
{
    cachePin();
    for (const auto& [size, code] : {std::pair(16u, "8"), {24u, "11"}, {32u, "10"}}) {
        NCRYPT_KEY_HANDLE handle = 0;
        token.takeCalls();
        ASSERT_EQ(import(L"KeyDataBlob", concat({keyData(size), {1}}), handle), 0);
        EXPECT_THAT(token.takeCalls(), ElementsAre("importAesKey(TOKEN-1, 1234, " + hexOf(counting(size)) + ", " + code + ")"));
        EXPECT_FALSE(kspKeyOf(owned(handle))->isSymmetric()) << "the clear key is not kept";
        EXPECT_EQ(textProperty(handle, L"Name"), L"88888888888888888888888888888888");
        EXPECT_EQ(dwordProperty(handle, L"Length"), 0u);
    }
}

TEST_F(KspKeyImport, StoredKeyIsWhatTheTokenAnswered)
{
    token.onImportAesKey = [](QueltaSymmetricKey& key) {
        key.encryptionType = 77;
        key.usage = usageBoth;
        key.flag = 1;
    };
    const KspKey& key = *kspKeyOf(imported(L"KeyDataBlob", keyData(16)));
    EXPECT_EQ(key.algorithm, 77u);
    EXPECT_EQ(key.keyUsage, 3u);
    EXPECT_EQ(key.keyPairFlag, 1);

    NCRYPT_KEY_HANDLE none = 7;
    token.willAnswer(Call::importAesKey, 3);
    EXPECT_EQ(import(L"KeyDataBlob", keyData(16), none), NTE_BAD_TYPE);
    EXPECT_EQ(none, 7u);
    EXPECT_THAT(token.takeCalls(), ElementsAre("importAesKey(TOKEN-1, \"\", " + hexOf(counting(16)) + ", 8)"))
        << "without asking for a PIN";
}

TEST_F(KspKeyImport, MissingPiecesAreRefusedWhateverTheType)
{
    BYTE byte = 1;
    NCRYPT_KEY_HANDLE key = 7;
    const auto call = [&](LPCWSTR type, NCRYPT_KEY_HANDLE* handle, PBYTE data, DWORD size) {
        return ksp.ImportKey(provider, 0, type, nullptr, handle, data, size, 0);
    };
    EXPECT_EQ(call(nullptr, &key, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"?", nullptr, &byte, 1), NTE_INVALID_PARAMETER);
    EXPECT_EQ(call(L"?", &key, nullptr, 1), NTE_INVALID_PARAMETER);
    for (const DWORD size : {DWORD{0}, DWORD{0x80000000}})
        EXPECT_EQ(call(L"PUBLICBLOB", &key, &byte, size), NTE_INVALID_PARAMETER);
    EXPECT_EQ(key, 7u);
}

} // namespace quelta::test
