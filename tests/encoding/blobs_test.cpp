#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "encoding/capi_blobs.h"
#include "encoding/cng_blobs.h"
#include "encoding/little_endian.h"
#include "encoding/rsa_public_key.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <bcrypt.h>

#include <algorithm>

namespace quelta::test {

namespace {

constexpr std::uint32_t rsaKeyExchange = 0xA400;
constexpr std::uint32_t rsaPrivateMagic = 0x32415352;
constexpr std::uint32_t keyDataMagic = 0x4D42444B;

ByteView viewOf(const GuardedBuffer& buffer)
{
    return {buffer.data(), buffer.size()};
}

GuardedBuffer blobOf(std::initializer_list<std::uint32_t> words, std::size_t rest)
{
    Bytes blob;
    for (const std::uint32_t word : words) appendU32(blob, word);
    const Bytes content = counting(rest);
    blob.insert(blob.end(), content.begin(), content.end());
    return GuardedBuffer(blob);
}

// A public key blob of CryptoAPI that announces `bits` and carries `modulusSize` bytes of modulus.
GuardedBuffer capiBlob(std::uint32_t bits, std::size_t modulusSize, std::uint32_t magic = rsaPublicMagic,
                       std::uint32_t exponent = 65537)
{
    return blobOf({0x0200 | blobTypePublicKey, rsaKeyExchange, magic, bits, exponent}, modulusSize);
}

// What bcrypt gives back for a public key that it was given.
Bytes throughBcrypt(Bytes blob)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    Bytes exported(2048);
    ULONG size = static_cast<ULONG>(exported.size());
    const bool done = BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0)) &&
                      BCRYPT_SUCCESS(BCryptImportKeyPair(algorithm, nullptr, BCRYPT_RSAPUBLIC_BLOB, &key, blob.data(),
                                                         static_cast<ULONG>(blob.size()), 0)) &&
                      BCRYPT_SUCCESS(BCryptExportKey(key, nullptr, BCRYPT_RSAPUBLIC_BLOB, exported.data(), size, &size, 0));
    EXPECT_TRUE(done);
    if (key) BCryptDestroyKey(key);
    if (algorithm) BCryptCloseAlgorithmProvider(algorithm, 0);
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
        const GuardedBuffer blob = capiBlob(row.bits, row.present);
        const auto key = parseCapiPublicBlob(viewOf(blob));
        ASSERT_EQ(key.has_value(), row.accepted) << row.bits << " bits, " << row.present << " bytes";
        if (!key) continue;
        EXPECT_EQ(key->modulus.size(), row.bits / 8);
        EXPECT_EQ(key->bitLength, row.bits);
    }
    EXPECT_FALSE(parseCapiPublicBlob(viewOf(capiBlob(64, 8, rsaPrivateMagic)))) << "the magic of a private key";
}

TEST(CapiBlobs, ByteOrderIsTurned)
{
    const GuardedBuffer blob = capiBlob(32, 4, rsaPublicMagic, 0x04030201);
    const auto key = parseCapiPublicBlob(viewOf(blob));
    ASSERT_TRUE(key);
    EXPECT_EQ(capiPublicKeyToDer(*key), rsaPublicKeyToDer("04030201", "030201"));
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

TEST(CngBlobs, ShortBlobsAreRefusedAtEveryLength)
{
    for (std::size_t size = 0; size < 24; ++size) {
        const GuardedBuffer key(blobOf({rsaPublicMagic, 0, 0, 0, 0, 0}, 0).first(size));
        EXPECT_FALSE(parseCngPublicBlob(viewOf(key))) << size;
        const GuardedBuffer data(blobOf({keyDataMagic, 1, 0}, 0).first(size / 2));
        EXPECT_FALSE(parseKeyDataBlob(viewOf(data))) << size / 2;
    }
}

TEST(CngBlobs, AnnouncedLengthsMustFitTogether)
{
    struct Row {
        std::uint32_t exponent;
        std::uint32_t modulus;
        std::size_t present;
        bool accepted;
    };
    constexpr std::uint32_t most = 0xFFFFFFFF;
    for (const Row& row : {Row{3, 256, 259, true}, Row{3, 256, 258, false}, Row{3, 256, 300, true}, Row{0, 0, 0, true},
                           Row{1, 0, 0, false}, Row{most, 1, 259, false}, Row{1, most, 259, false}, Row{most, most, 259, false},
                           Row{0x80000000, 0x80000000, 259, false}}) {
        const GuardedBuffer blob = blobOf({rsaPublicMagic, 2048, row.exponent, row.modulus, 0, 0}, row.present);
        const auto key = parseCngPublicBlob(viewOf(blob));
        ASSERT_EQ(key.has_value(), row.accepted) << row.exponent << " and " << row.modulus << " of " << row.present;
        if (!key) continue;
        EXPECT_TRUE(std::ranges::equal(key->modulus, counting(row.modulus, static_cast<unsigned char>(row.exponent + 1))));
    }
    EXPECT_FALSE(parseCngPublicBlob(viewOf(blobOf({rsaPrivateMagic, 2048, 3, 256, 0, 0}, 259)))) << "the magic of a private key";
}

TEST(CngBlobs, KeyDataIsTakenAsLongAsAnnounced)
{
    struct Row {
        std::uint32_t size;
        std::size_t present;
        bool accepted;
    };
    for (const Row& row :
         {Row{16, 16, true}, Row{16, 15, false}, Row{16, 20, true}, Row{0, 0, true}, Row{0xFFFFFFFF, 32, false}}) {
        const GuardedBuffer blob = blobOf({keyDataMagic, 1, row.size}, row.present);
        const auto key = parseKeyDataBlob(viewOf(blob));
        ASSERT_EQ(key.has_value(), row.accepted) << row.size << " of " << row.present;
        if (!key) continue;
        EXPECT_TRUE(std::ranges::equal(*key, counting(row.size)));
    }
    EXPECT_FALSE(parseKeyDataBlob(viewOf(blobOf({keyDataMagic + 1, 1, 16}, 16))));
}

TEST(CngBlobs, BcryptTakesAndGivesTheSamePublicKey)
{
    for (const std::size_t size : {128, 256, 384, 512}) {
        Bytes modulus = counting(size, 0x81);
        modulus.back() |= 1;
        const Bytes blob = writeCngPublicBlob(modulus);
        EXPECT_EQ(throughBcrypt(blob), blob) << size * 8 << " bits";
        EXPECT_TRUE(std::ranges::equal(parseCngPublicBlob(blob).value().modulus, modulus));
        const Bytes capiBlob = writeCapiPublicBlob(rsaKeyExchange, modulus);
        EXPECT_EQ(capiPublicKeyToDer(parseCapiPublicBlob(capiBlob).value()), rawModulusToDer(modulus));
    }
}

} // namespace quelta::test
