#include "support/fake_device_library.h"

#include "encoding/rsa_public_key.h"
#include "log/utils.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <wincrypt.h>

namespace quelta::test {

namespace {

std::string hexOf(const Bytes& bytes)
{
    return Utils::toHex(bytes.data(), static_cast<int>(bytes.size()));
}

std::vector<std::max_align_t> decode(LPCSTR kind, const BYTE* encoded, DWORD size)
{
    std::vector<std::max_align_t> room(256);
    auto roomSize = static_cast<DWORD>(room.size() * sizeof(std::max_align_t));
    // Not to be copied: the structure points into itself.
    if (!CryptDecodeObjectEx(X509_ASN_ENCODING, kind, encoded, size, 0, nullptr, room.data(), &roomSize)) room.clear();
    return room;
}

struct DecodedKey {
    std::string algorithm;
    DWORD exponent = 0;
    Bytes modulus;
};

// What crypt32 makes of a SubjectPublicKeyInfo.
DecodedKey decodeKey(const Bytes& der)
{
    const auto infoRoom = decode(X509_PUBLIC_KEY_INFO, der.data(), static_cast<DWORD>(der.size()));
    if (infoRoom.empty()) return {};
    const auto& info = *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(infoRoom.data());
    const auto keyRoom = decode(RSA_CSP_PUBLICKEYBLOB, info.PublicKey.pbData, info.PublicKey.cbData);
    if (keyRoom.empty()) return {};
    const auto* header = reinterpret_cast<const BYTE*>(keyRoom.data()) + sizeof(BLOBHEADER);
    const auto& key = *reinterpret_cast<const RSAPUBKEY*>(header);
    const BYTE* littleEndian = header + sizeof(RSAPUBKEY);
    return {info.Algorithm.pszObjId,
            key.pubexp,
            {std::reverse_iterator(littleEndian + key.bitlen / 8), std::reverse_iterator(littleEndian)}};
}

} // namespace

TEST(RsaPublicKey, HexIsReadLeniently)
{
    using Row = std::pair<const char*, Bytes>;
    for (const auto& [text, bytes] : {Row{"", {}}, Row{"0x", {}}, Row{"0X", {}}, Row{"0x1", {0x01}}, Row{"1", {0x01}},
                                      Row{"0", {0x00}}, Row{"zz", {0x00}}, Row{"aBc", {0x0A, 0xBC}}, Row{"0XfF00", {0xFF, 0x00}},
                                      Row{"x1", {0x01}}, Row{"00x1", {0x00, 0x01}}, Row{"g9", {0x09}}}) {
        EXPECT_EQ(hexToBytes(text), bytes) << text;
    }
}

TEST(RsaPublicKey, DerLengthsChangeFormAtTheirLimits)
{
    const std::pair<std::size_t, const char*> rows[] = {
        {0, "00"},       {127, "7F"},       {128, "8180"},       {255, "81FF"},
        {256, "820100"}, {65535, "82FFFF"}, {65536, "83010000"}, {0x12345678, "8412345678"}};
    for (const auto& [length, encoded] : rows) EXPECT_EQ(hexOf(encodeDerLength(length)), encoded) << length;
    EXPECT_EQ(hexOf(encodeDerTlv(0x04, Bytes(128, 0x55))).substr(0, 8), "04818055");
}

TEST(RsaPublicKey, Crypt32ReadsBackWhatWasEncoded)
{
    for (const std::size_t size : {64, 127, 128, 255, 256, 384, 512}) {
        for (const unsigned char first : Bytes{0x7F, 0x80, 0xFF}) {
            const Bytes modulus = counting(size, first);
            const DecodedKey key = decodeKey(rawModulusToDer(modulus));
            EXPECT_EQ(key.algorithm, szOID_RSA_RSA) << size;
            EXPECT_EQ(key.exponent, 65537U);
            EXPECT_EQ(key.modulus, modulus) << size << " bytes";
        }
    }
    EXPECT_EQ(decodeKey(rsaPublicKeyToDer("0x" + hexOf(counting(128, 0xC1)), "3")).exponent, 3U);
}

// Crypt32 would not miss the NULL of the algorithm.
TEST(RsaPublicKey, KeyOf2048BitsIsThese294Bytes)
{
    const Bytes modulus = counting(256, 0xC1);
    const Bytes der = rawModulusToDer(modulus);
    EXPECT_EQ(der.size(), 294U);
    EXPECT_EQ(hexOf(der), "30820122300D06092A864886F70D01010105000382010F003082010A0282010100" + hexOf(modulus) + "0203010001");
}

TEST(RsaPublicKey, NothingIsTakenFromOrAddedToTheModulusButTheSign)
{
    EXPECT_THAT(hexOf(rsaPublicKeyToDer("000102", "010001")), ::testing::HasSubstr("0203000102"
                                                                                   "0203010001"));
    EXPECT_THAT(hexOf(rsaPublicKeyToDer("", "80")), ::testing::EndsWith("0200"
                                                                        "02020080"));
}

} // namespace quelta::test
