#include "support/test_bytes.h"

#include "encoding/rsa_public_key.h"

#include <gmock/gmock.h>

namespace quelta::test {

TEST(RsaPublicKey, HexIsReadLeniently)
{
    using Row = std::pair<const char*, Bytes>;
    for (const auto& [text, bytes] : {Row{"", {}}, Row{"0x", {}}, Row{"0X", {}}, Row{"0x1", {0x01}}, Row{"1", {0x01}},
                                      Row{"0", {0x00}}, Row{"zz", {0x00}}, Row{"aBc", {0x0A, 0xBC}}, Row{"0XfF00", {0xFF, 0x00}},
                                      Row{"x1", {0x01}}, Row{"00x1", {0x00, 0x01}}, Row{"g9", {0x09}}}) {
        EXPECT_EQ(hexToBytes(text), bytes) << text;
    }
}

TEST(RsaPublicKey, NothingIsTakenFromOrAddedToTheModulusButTheSign)
{
    EXPECT_THAT(toHex(rsaPublicKeyToDer("000102", "010001")), ::testing::EndsWith("0203000102"
                                                                                  "0203010001"));
    EXPECT_THAT(toHex(rsaPublicKeyToDer("", "80")), ::testing::EndsWith("0200"
                                                                        "02020080"));
}

} // namespace quelta::test
