#include "support/guarded_buffer.h"
#include "support/test_bytes.h"

#include "encoding/capi_blobs.h"
#include "encoding/cng_blobs.h"
#include "encoding/little_endian.h"
#include "encoding/rsa_public_key.h"

#include <gmock/gmock.h>

#include <bcrypt.h>

namespace quelta::test {

namespace {

constexpr std::uint32_t rsaKeyExchange = 0xA400;
constexpr std::uint32_t most = 0xFFFFFFFF;
constexpr auto refused = std::nullopt;

// The key that a reader finds in these bytes, whose memory ends with them.
template <class Parsed>
std::optional<Bytes> keyFrom(std::optional<Parsed> (*read)(ByteView), ByteView content)
{
    const GuardedBuffer blob(content);
    const auto parsed = read({blob.data(), blob.size()});
    if (!parsed) return refused;
    if constexpr (std::is_same_v<Parsed, ByteView>)
        return toBytes(*parsed);
    else
        return toBytes(parsed->modulus);
}

// Every length that is shorter than these numbers is refused, and they are not.
template <class Parsed>
void expectShortest(std::optional<Parsed> (*read)(ByteView), const Bytes& whole)
{
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_EQ(keyFrom(read, ByteView(whole).first(size)), refused) << size;
    EXPECT_EQ(keyFrom(read, whole), Bytes());
}

// Their headers.
Bytes capi(std::uint32_t bits, std::uint32_t exponent = 65537)
{
    return littleEndian({0x0200 | blobTypePublicKey, rsaKeyExchange, rsaPublicMagic, bits, exponent});
}
Bytes cng(std::uint32_t exponentSize, std::uint32_t modulusSize)
{
    return littleEndian({rsaPublicMagic, 2048, exponentSize, modulusSize, 0, 0});
}
Bytes keyData(std::uint32_t size)
{
    return littleEndian({0x4D42444B, 1, size});
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

TEST(Blobs, ShortOnesAreRefusedAtEveryLength)
{
    expectShortest(parseCapiPublicBlob, capi(0));
    expectShortest(parseCngPublicBlob, cng(0, 0));
    expectShortest(parseKeyDataBlob, keyData(0));
    for (const std::size_t size : {0, 7, 8}) {
        const GuardedBuffer blob(size);
        EXPECT_EQ(readCapiBlobHeader({blob.data(), size}).has_value(), size == 8);
    }
}

// Transcripts of both interfaces have the ordinary ones.
TEST(Blobs, AnnouncedLengthsMustBeThereWhateverTheyAddUpTo)
{
    const Bytes present = counting(259);
    EXPECT_EQ(keyFrom(parseCapiPublicBlob, concat({capi(259 * 8 + 7), present})), present);
    for (const std::uint32_t bits : {260U * 8, 0x80000000U, most})
        EXPECT_EQ(keyFrom(parseCapiPublicBlob, concat({capi(bits), present})), refused) << bits;
    EXPECT_EQ(keyFrom(parseCngPublicBlob, concat({cng(3, 256), present})), counting(256, 4));
    for (const auto& [exponent, modulus] : {std::pair(3U, 257U), {most, 1U}, {1U, most}, {most, most}, {1U << 31, 1U << 31}})
        EXPECT_EQ(keyFrom(parseCngPublicBlob, concat({cng(exponent, modulus), present})), refused) << exponent << ", " << modulus;
    EXPECT_EQ(keyFrom(parseKeyDataBlob, concat({keyData(259), present})), present);
    for (const std::uint32_t size : {260U, most})
        EXPECT_EQ(keyFrom(parseKeyDataBlob, concat({keyData(size), present})), refused) << size;
}

TEST(Blobs, CapiByteOrderIsTurned)
{
    const Bytes blob = concat({capi(32, 0x04030201), counting(4)});
    const auto key = parseCapiPublicBlob(blob);
    ASSERT_TRUE(key);
    EXPECT_EQ(key->bitLength, 32U);
    EXPECT_EQ(capiPublicKeyToDer(*key), rsaPublicKeyToDer("04030201", "030201"));
    EXPECT_THAT(key->exponent, ::testing::ElementsAre(3, 2, 1)) << "the highest byte is dropped";
}

TEST(Blobs, WrappedCapiKeyLeavesOutTheLastFourBytes)
{
    for (const std::size_t size : {12, 36}) {
        const GuardedBuffer blob(counting(size));
        EXPECT_EQ(toBytes(wrappedKeyOfCapiBlob({blob.data(), size})), counting(size - 12, 9));
        EXPECT_EQ(toBytes(keyOfCapiBlob({blob.data(), size})), counting(size - 12, 13));
    }
}

TEST(Blobs, BcryptTakesAndGivesTheSamePublicKey)
{
    for (const std::size_t size : {128, 256, 384, 512}) {
        Bytes modulus = counting(size, 0x81);
        modulus.back() |= 1;
        const Bytes blob = writeCngPublicBlob(modulus);
        EXPECT_EQ(throughBcrypt(blob), blob) << size * 8 << " bits";
        EXPECT_EQ(keyFrom(parseCngPublicBlob, blob), modulus);
        const Bytes capiBlob = writeCapiPublicBlob(rsaKeyExchange, modulus);
        EXPECT_EQ(capiPublicKeyToDer(parseCapiPublicBlob(capiBlob).value()), rawModulusToDer(modulus));
    }
}

} // namespace quelta::test
