#include "common/der_reader.h"

#include <gtest/gtest.h>

namespace quelta::der {
namespace {

TEST(Der, LengthsTakeAsFewBytesAsTheyNeedAndSetsAreSorted)
{
    const std::pair<std::uint64_t, Bytes> rows[] = {
        {127, {4, 127}}, {128, {4, 0x81, 128}}, {256, {4, 0x82, 1, 0}}, {0x123456789, {4, 0x85, 1, 0x23, 0x45, 0x67, 0x89}}};
    for (const auto& [length, expected] : rows) EXPECT_EQ(header(tagOctetString, length), expected) << length;
    EXPECT_EQ(setOf({smallInteger(9), smallInteger(1)}), (Bytes{0x31, 6, 2, 1, 1, 2, 1, 9}));
}

TEST(Der, EcdsaSignaturesSurviveThereAndBackWithLeadingZerosAndTopBits)
{
    const Bytes halves{0, 0, 5, 0, 0xFF, 1, 2, 3};
    const Bytes signature{0x30, 11, 2, 2, 5, 0, 2, 5, 0, 0xFF, 1, 2, 3};
    EXPECT_EQ(ecdsaSignature(halves), signature);
    EXPECT_EQ(ecdsaHalves(signature, 4), halves);
    EXPECT_FALSE(ecdsaHalves(concat({signature, null()}), 4)) << "with bytes behind it";
    EXPECT_FALSE(ecdsaHalves(sequence({smallInteger(1), smallInteger(2), null()}), 4)) << "or behind its numbers";
}

} // namespace
} // namespace quelta::der
