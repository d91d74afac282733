#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "encoding/capi_blobs.h"
#include "encoding/little_endian.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <wincrypt.h>

#include <algorithm>

namespace quelta::test {

namespace {

constexpr std::uint32_t rsaKeyExchange = 0xA400;

ByteView viewOf(const GuardedBuffer& buffer)
{
    return {buffer.data(), buffer.size()};
}

// A public key blob that announces `bits` and carries `modulusSize` bytes of modulus.
GuardedBuffer publicBlob(std::uint32_t bits, std::size_t modulusSize, std::uint32_t magic = rsaPublicMagic,
                         std::uint32_t exponent = 65537)
{
    Bytes blob = {blobTypePublicKey, 2, 0, 0};
    for (const std::uint32_t word : {rsaKeyExchange, magic, bits, exponent}) appendU32(blob, word);
    const Bytes modulus = counting(modulusSize);
    blob.insert(blob.end(), modulus.begin(), modulus.end());
    return GuardedBuffer(blob);
}

// What the system's own provider gives back for a blob that it was given.
Bytes throughSystemProvider(const Bytes& blob)
{
    HCRYPTPROV provider = 0;
    HCRYPTKEY key = 0;
    Bytes exported(4096);
    DWORD size = static_cast<DWORD>(exported.size());
    const bool done = CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT) &&
                      CryptImportKey(provider, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key) &&
                      CryptExportKey(key, 0, PUBLICKEYBLOB, 0, exported.data(), &size);
    EXPECT_TRUE(done) << GetLastError();
    if (key) CryptDestroyKey(key);
    if (provider) CryptReleaseContext(provider, 0);
    exported.resize(done ? size : 0);
    return exported;
}

} // namespace

TEST(CapiBlobs, ShortBlobsAreRefusedAtEveryLength)
{
    for (std::size_t size = 0; size < 20; ++size) {
        const GuardedBuffer blob(size);
        EXPECT_EQ(readCapiBlobHeader(viewOf(blob)).has_value(), size >= 8) << size;
        EXPECT_EQ(parseCapiPublicBlob(viewOf(blob)), std::nullopt) << size;
    }
}

TEST(CapiBlobs, AnnouncedModulusMustBeThere)
{
    struct Row {
        std::uint32_t bits;
        std::size_t present;
        bool accepted;
    };
    for (const Row& row : {Row{2048, 256, true}, Row{2048, 255, false}, Row{2048, 300, true}, Row{0, 0, true}, Row{7, 0, true},
                           Row{8, 0, false}, Row{15, 1, true}, Row{0xFFFFFFFF, 256, false}, Row{0x80000000, 256, false}}) {
        const GuardedBuffer blob = publicBlob(row.bits, row.present);
        const auto key = parseCapiPublicBlob(viewOf(blob));
        ASSERT_EQ(key.has_value(), row.accepted) << row.bits << " bits, " << row.present << " bytes";
        if (key) {
            EXPECT_EQ(key->modulus.size(), row.bits / 8);
        }
        if (key) {
            EXPECT_EQ(key->bitLength, row.bits);
        }
    }
    EXPECT_FALSE(parseCapiPublicBlob(viewOf(publicBlob(64, 8, 0x32415352)))) << "the magic of a private key";
}

TEST(CapiBlobs, ByteOrderIsTurned)
{
    const GuardedBuffer blob = publicBlob(32, 4, rsaPublicMagic, 0x04030201);
    const auto key = parseCapiPublicBlob(viewOf(blob));
    ASSERT_TRUE(key);
    EXPECT_EQ(key->modulus, (Bytes{4, 3, 2, 1}));
    EXPECT_THAT(key->exponent, ::testing::ElementsAre(3, 2, 1)) << "the highest byte is dropped";
}

TEST(CapiBlobs, WrappedKeyLeavesOutTheLastFourBytes)
{
    const GuardedBuffer shortest(counting(12));
    EXPECT_TRUE(wrappedKeyOfCapiBlob(viewOf(shortest)).empty());
    EXPECT_TRUE(keyOfCapiBlob(viewOf(shortest)).empty());
    const GuardedBuffer blob(counting(36));
    EXPECT_TRUE(std::ranges::equal(wrappedKeyOfCapiBlob(viewOf(blob)), counting(24, 9)));
    EXPECT_TRUE(std::ranges::equal(keyOfCapiBlob(viewOf(blob)), counting(24, 13)));
}

TEST(CapiBlobs, SystemProviderTakesAndGivesTheSamePublicKey)
{
    for (const std::size_t size : {128, 256, 384, 512}) {
        Bytes modulus = counting(size, 0x81);
        modulus.back() |= 1;
        const Bytes blob = writeCapiPublicBlob(rsaKeyExchange, modulus);
        EXPECT_EQ(throughSystemProvider(blob), blob) << size * 8 << " bits";
        const auto key = parseCapiPublicBlob(blob);
        ASSERT_TRUE(key);
        EXPECT_EQ(key->modulus, modulus);
    }
}

} // namespace quelta::test
