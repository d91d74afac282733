#include "der.h"

#include <gtest/gtest.h>

namespace quelta::der {
namespace {

Bytes bytes(std::initializer_list<int> values)
{
    Bytes result;
    for (const int value : values) result.push_back(static_cast<unsigned char>(value));
    return result;
}

TEST(Der, LengthsTakeAsFewBytesAsTheyNeedUpToFilesOfManyGigabytes)
{
    const struct {
        std::uint64_t length;
        Bytes header;
    } rows[] = {
        {0, bytes({4, 0})},
        {127, bytes({4, 127})},
        {128, bytes({4, 0x81, 128})},
        {256, bytes({4, 0x82, 1, 0})},
        {0x123456789, bytes({4, 0x85, 1, 0x23, 0x45, 0x67, 0x89})},
    };
    for (const auto& row : rows) EXPECT_EQ(header(tagOctetString, row.length), row.header) << row.length;
}

TEST(Der, UnsignedIntegersLoseLeadingZerosAndNeverTurnNegative)
{
    EXPECT_EQ(unsignedInteger(Bytes()), bytes({2, 1, 0}));
    EXPECT_EQ(unsignedInteger(bytes({0, 0, 0x7F})), bytes({2, 1, 0x7F}));
    EXPECT_EQ(unsignedInteger(bytes({0, 0x80})), bytes({2, 2, 0, 0x80}));
}

TEST(Der, ObjectIdentifiersWithLongArcs)
{
    EXPECT_EQ(oid("1.2.840.113549.1.7.2"), bytes({6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 7, 2}));
    EXPECT_EQ(oid("2.16.840.1.101.3.4.2.1"), bytes({6, 9, 0x60, 0x86, 0x48, 1, 0x65, 3, 4, 2, 1}));
}

TEST(Der, SetsAreSorted)
{
    EXPECT_EQ(setOf({smallInteger(9), smallInteger(1)}), bytes({0x31, 6, 2, 1, 1, 2, 1, 9}));
}

TEST(Der, EcdsaSignaturesSurviveThereAndBackWithLeadingZerosAndTopBits)
{
    const Bytes halves = bytes({0, 0, 5, 0, 0xFF, 1, 2, 3});
    const Bytes signature = ecdsaSignature(halves);
    EXPECT_EQ(signature, bytes({0x30, 11, 2, 2, 5, 0, 2, 5, 0, 0xFF, 1, 2, 3}));
    EXPECT_EQ(ecdsaHalves(signature, 4), halves);
    EXPECT_EQ(ecdsaHalves(signature, 3), std::nullopt) << "a number larger than the curve's";
    EXPECT_EQ(ecdsaHalves(ByteView(signature).first(signature.size() - 1), 4), std::nullopt);
    EXPECT_EQ(ecdsaHalves(sequence({unsignedInteger(bytes({1}))}), 4), std::nullopt) << "one number alone";
}

TEST(Der, ReaderNeverLeavesItsBytes)
{
    const Bytes faulty[] = {
        {},
        bytes({4}),
        bytes({4, 1}),
        bytes({4, 0x80}),
        bytes({4, 0x81}),
        bytes({4, 0x82, 0, 5, 1}),
        bytes({4, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1}),
        bytes({4, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7}),
    };
    for (const Bytes& item : faulty) EXPECT_FALSE(Reader(item).next()) << item.size();

    const Bytes two = bytes({4, 1, 7, 5, 0});
    Reader reader(two);
    EXPECT_FALSE(reader.next(tagNull)) << "another tag leaves the element unread";
    EXPECT_EQ(reader.next(tagOctetString)->content[0], 7);
    EXPECT_TRUE(reader.next(tagNull));
    EXPECT_TRUE(reader.atEnd());
}

} // namespace
} // namespace quelta::der
