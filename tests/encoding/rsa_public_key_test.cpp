#include "support/test_bytes.h"

#include "encoding/rsa_public_key.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <wincrypt.h>

namespace quelta::test {

namespace {

std::vector<std::max_align_t> decode(LPCSTR kind, const BYTE* encoded, DWORD size)
{
    std::vector<std::max_align_t> room(256);
    auto roomSize = static_cast<DWORD>(room.size() * sizeof(std::max_align_t));
    // Not to be copied: the structure points into itself.
    if (!CryptDecodeObjectEx(X509_ASN_ENCODING, kind, encoded, size, 0, nullptr, room.data(), &roomSize)) room.clear();
    return room;
}

// What crypt32 makes of a SubjectPublicKeyInfo: algorithm, exponent and modulus.
std::tuple<std::string, DWORD, Bytes> decodeKey(const Bytes& der)
{
    const auto infoRoom = decode(X509_PUBLIC_KEY_INFO, der.data(), static_cast<DWORD>(der.size()));
    if (infoRoom.empty()) return {};
    const auto& info = *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(infoRoom.data());
    const auto keyRoom = decode(RSA_CSP_PUBLICKEYBLOB, info.PublicKey.pbData, info.PublicKey.cbData);
    if (keyRoom.empty()) return {};
    const auto* header = reinterpret_cast<const BYTE*>(keyRoom.data()) + sizeof(BLOBHEADER);
    const auto& key = *reinterpret_cast<const RSAPUBKEY*>(header);
    return {info.Algorithm.pszObjId, key.pubexp, reversed({header + sizeof(RSAPUBKEY), key.bitlen / 8})};
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

TEST(RsaPublicKey, Crypt32ReadsBackWhatWasEncoded)
{
    for (const std::size_t size : {64, 127, 128, 255, 256, 384, 512}) {
        for (const unsigned char first : Bytes{0x7F, 0x80, 0xFF}) {
            const Bytes modulus = counting(size, first);
            EXPECT_EQ(decodeKey(rawModulusToDer(modulus)), std::tuple(szOID_RSA_RSA, 65537U, modulus)) << size << " bytes";
        }
    }
    EXPECT_EQ(std::get<DWORD>(decodeKey(rsaPublicKeyToDer("0x" + toHex(counting(128, 0xC1)), "3"))), 3U);
}

// Crypt32 would not miss the NULL of the algorithm.
TEST(RsaPublicKey, KeyOf2048BitsIsThese294Bytes)
{
    const Bytes modulus = counting(256, 0xC1);
    EXPECT_EQ(toHex(rawModulusToDer(modulus)),
              "30820122300D06092A864886F70D01010105000382010F003082010A0282010100" + toHex(modulus) + "0203010001");
}

TEST(RsaPublicKey, NothingIsTakenFromOrAddedToTheModulusButTheSign)
{
    EXPECT_THAT(toHex(rsaPublicKeyToDer("000102", "010001")), ::testing::EndsWith("0203000102"
                                                                                  "0203010001"));
    EXPECT_THAT(toHex(rsaPublicKeyToDer("", "80")), ::testing::EndsWith("0200"
                                                                        "02020080"));
}

} // namespace quelta::test
