#include "base/der.h"

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
    const Bytes one = smallInteger(1);
    EXPECT_EQ(ecdsaHalves(sequence({one}), 4), std::nullopt);
    EXPECT_EQ(ecdsaHalves(sequence({one, one, one}), 4), std::nullopt);
}

TEST(Der, ReaderNeverLeavesItsBytes)
{
    const Bytes faulty[] = {
        {},
        {4},
        {4, 1},
        {4, 0x80, 0, 0},
        {4, 0x81},
        {4, 0x81, 1, 7},
        {4, 0x82, 0, 5, 1},
        {4, 0x82, 0, 1, 7},
        {4, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1},
        {4, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7},
        {0x1F, 4, 0, 0, 0, 0},
    };
    for (const Bytes& item : faulty) EXPECT_FALSE(Reader(item).next()) << item.size();

    const Bytes two{4, 1, 7, 5, 0};
    Reader reader(two);
    EXPECT_FALSE(reader.next(tagNull)) << "another tag leaves the element unread";
    EXPECT_EQ(reader.next(tagOctetString)->content[0], 7);
    EXPECT_TRUE(reader.next(tagNull));
    EXPECT_TRUE(reader.atEnd());
}

// What is refused stays unread, so that the caller can tell what stands there instead.
TEST(Der, ValuesAreReadInTheOneFormThatTheyHave)
{
    const struct {
        Bytes element;
        std::optional<std::uint64_t> number;
    } numbers[] = {
        {{2, 1, 0}, 0},
        {{2, 1, 0x7F}, 0x7F},
        {{2, 2, 0, 0x80}, 0x80},
        {{2, 9, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, ~std::uint64_t{0}},
        {{2, 9, 1, 0, 0, 0, 0, 0, 0, 0, 0}, std::nullopt},
        {{2, 1, 0x80}, std::nullopt},
        {{2, 2, 0, 0x7F}, std::nullopt},
        {{2, 0}, std::nullopt},
        {{4, 1, 1}, std::nullopt},
    };
    for (const auto& row : numbers) {
        Reader reader(row.element);
        EXPECT_EQ(reader.smallInteger(), row.number) << ::testing::PrintToString(row.element);
        EXPECT_EQ(reader.atEnd(), row.number.has_value());
    }
    EXPECT_FALSE(Reader(Bytes{3, 2, 1, 0xFE}).bitString()) << "unused bits";
    EXPECT_FALSE(Reader(Bytes{3, 0}).bitString());
}

TEST(Der, ObjectIdentifiersSurviveThereAndBack)
{
    EXPECT_EQ(oid("1.2.840.113549.1.1.1"), (Bytes{6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 1, 1}));
    for (const char* dotted : {"0.0", "1.39.127", "2.999.3", "2.5.29.15", "1.3.6.1.4.1.18446744073709551615"})
        EXPECT_EQ(Reader(oid(dotted)).oid(), dotted);
    const Bytes faulty[] = {{6, 0},
                            {6, 1, 0x80},
                            {6, 2, 0x2A, 0x86},
                            {6, 3, 0x2A, 0x80, 1},
                            {6, 11, 0x2A, 0x83, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0}};
    for (const Bytes& item : faulty) EXPECT_EQ(Reader(item).oid(), std::nullopt) << ::testing::PrintToString(item);
}

} // namespace
} // namespace quelta::der
