#include "der.h"

#include <gtest/gtest.h>

namespace quelta::der {
namespace {

TEST(Der, LengthsTakeAsFewBytesAsTheyNeedUpToFilesOfManyGigabytes)
{
    const struct {
        std::uint64_t length;
        Bytes header;
    } rows[] = {
        {0, {4, 0}},
        {127, {4, 127}},
        {128, {4, 0x81, 128}},
        {256, {4, 0x82, 1, 0}},
        {0x123456789, {4, 0x85, 1, 0x23, 0x45, 0x67, 0x89}},
    };
    for (const auto& row : rows) EXPECT_EQ(header(tagOctetString, row.length), row.header) << row.length;
}

TEST(Der, UnsignedIntegersNeverTurnNegativeAndSetsAreSorted)
{
    EXPECT_EQ(unsignedInteger(Bytes()), (Bytes{2, 1, 0}));
    EXPECT_EQ(unsignedInteger(Bytes{0, 0, 0x7F}), (Bytes{2, 1, 0x7F}));
    EXPECT_EQ(unsignedInteger(Bytes{0, 0x80}), (Bytes{2, 2, 0, 0x80}));
    EXPECT_EQ(setOf({smallInteger(9), smallInteger(1)}), (Bytes{0x31, 6, 2, 1, 1, 2, 1, 9}));
}

TEST(Der, EcdsaSignaturesSurviveThereAndBackWithLeadingZerosAndTopBits)
{
    const Bytes halves{0, 0, 5, 0, 0xFF, 1, 2, 3};
    const Bytes signature = ecdsaSignature(halves);
    EXPECT_EQ(signature, (Bytes{0x30, 11, 2, 2, 5, 0, 2, 5, 0, 0xFF, 1, 2, 3}));
    EXPECT_EQ(ecdsaHalves(signature, 4), halves);
    EXPECT_EQ(ecdsaHalves(signature, 3), std::nullopt) << "a number larger than the curve's";
    EXPECT_EQ(ecdsaHalves(ByteView(signature).first(signature.size() - 1), 4), std::nullopt);
    EXPECT_EQ(ecdsaHalves(sequence({unsignedInteger(Bytes{1})}), 4), std::nullopt) << "one number alone";
}

TEST(Der, ReaderNeverLeavesItsBytes)
{
    const Bytes faulty[] = {
        {},
        {4},
        {4, 1},
        {4, 0x80},
        {4, 0x81},
        {4, 0x82, 0, 5, 1},
        {4, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1},
        {4, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7},
    };
    for (const Bytes& item : faulty) EXPECT_FALSE(Reader(item).next()) << item.size();

    const Bytes two{4, 1, 7, 5, 0};
    Reader reader(two);
    EXPECT_FALSE(reader.next(tagNull)) << "another tag leaves the element unread";
    EXPECT_EQ(reader.next(tagOctetString)->content[0], 7);
    EXPECT_TRUE(reader.next(tagNull));
    EXPECT_TRUE(reader.atEnd());
}

} // namespace
} // namespace quelta::der
