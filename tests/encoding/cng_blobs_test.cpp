#include "support/fake_device_library.h"
#include "support/guarded_buffer.h"

#include "encoding/cng_blobs.h"
#include "encoding/little_endian.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <bcrypt.h>

#include <algorithm>

namespace quelta::test {

namespace {

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

// What bcrypt gives back for a public key that it was given.
Bytes throughBcrypt(Bytes blob)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    Bytes exported(2048);
    ULONG size = static_cast<ULONG>(exported.size());
    const auto succeeded = [](NTSTATUS status) { return status >= 0; };
    const bool done = succeeded(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0)) &&
                      succeeded(BCryptImportKeyPair(algorithm, nullptr, BCRYPT_RSAPUBLIC_BLOB, &key, blob.data(),
                                                    static_cast<ULONG>(blob.size()), 0)) &&
                      succeeded(BCryptExportKey(key, nullptr, BCRYPT_RSAPUBLIC_BLOB, exported.data(), size, &size, 0));
    EXPECT_TRUE(done);
    if (key) BCryptDestroyKey(key);
    if (algorithm) BCryptCloseAlgorithmProvider(algorithm, 0);
    exported.resize(done ? size : 0);
    return exported;
}

} // namespace

TEST(CngBlobs, ShortBlobsAreRefusedAtEveryLength)
{
    for (std::size_t size = 0; size < 24; ++size) {
        const Bytes whole = blobOf({rsaPublicMagic, 0, 0, 0, 0, 0}, 0).first(size);
        EXPECT_FALSE(parseCngPublicBlob(viewOf(GuardedBuffer(whole)))) << size;
    }
    for (std::size_t size = 0; size < 12; ++size) {
        EXPECT_FALSE(parseKeyDataBlob(viewOf(GuardedBuffer(blobOf({keyDataMagic, 1, 0}, 0).first(size))))) << size;
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
        if (key) {
            EXPECT_EQ(key->modulus.size(), row.modulus);
        }
        if (key && row.modulus) {
            EXPECT_EQ(key->modulus.front(), row.exponent + 1) << "right after the exponent";
        }
    }
    EXPECT_FALSE(parseCngPublicBlob(viewOf(blobOf({0x32415352, 2048, 3, 256, 0, 0}, 259)))) << "the magic of a private key";
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
        if (key) {
            EXPECT_TRUE(std::ranges::equal(*key, counting(row.size)));
        }
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
        const auto key = parseCngPublicBlob(blob);
        ASSERT_TRUE(key);
        EXPECT_TRUE(std::ranges::equal(key->modulus, modulus));
    }
}

} // namespace quelta::test
