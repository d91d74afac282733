#include "base/der.h"

#include <gtest/gtest.h>

namespace quelta::der {
namespace {

TEST(Der, LengthsTakeAsFewBytesAsTheyNeedUpToFilesOfManyGigabytes)
{
    const std::pair<std::uint64_t, Bytes> rows[] = {{0, {4, 0}},
                                                    {127, {4, 127}},
                                                    {128, {4, 0x81, 128}},
                                                    {255, {4, 0x81, 255}},
                                                    {256, {4, 0x82, 1, 0}},
                                                    {65536, {4, 0x83, 1, 0, 0}},
                                                    {0x123456789, {4, 0x85, 1, 0x23, 0x45, 0x67, 0x89}}};
    for (const auto& [length, expected] : rows) EXPECT_EQ(header(tagOctetString, length), expected) << length;
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
    const Bytes signature{0x30, 11, 2, 2, 5, 0, 2, 5, 0, 0xFF, 1, 2, 3};
    EXPECT_EQ(ecdsaSignature(halves), signature);
    EXPECT_EQ(ecdsaHalves(signature, 4), halves);
    EXPECT_EQ(ecdsaHalves(signature, 3), std::nullopt) << "a number larger than the curve's";
    const Bytes one = smallInteger(1);
    for (const Bytes& faulty : {sequence({one}), sequence({one, one, one}), Bytes(signature.begin(), signature.end() - 1)})
        EXPECT_EQ(ecdsaHalves(faulty, 4), std::nullopt) << faulty.size();
}

TEST(Der, ReaderNeverLeavesItsBytes)
{
    for (const Bytes& faulty : {Bytes{},
                                {4},
                                {4, 1},
                                {4, 0x80, 0, 0},
                                {4, 0x81},
                                {4, 0x81, 1, 7},
                                {4, 0x82, 0, 5, 1},
                                {4, 0x82, 0, 1, 7},
                                {4, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1},
                                {4, 0x89, 0, 0, 0, 0, 0, 0, 0, 0, 1, 7},
                                {0x1F, 4, 0, 0, 0, 0}})
        EXPECT_FALSE(Reader(faulty).next()) << ::testing::PrintToString(faulty);

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
    const std::pair<Bytes, std::optional<std::uint64_t>> numbers[] = {
        {{2, 1, 0}, 0},
        {{2, 1, 0x7F}, 0x7F},
        {{2, 2, 0, 0x80}, 0x80},
        {{2, 9, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, ~std::uint64_t{0}},
        {{2, 9, 1, 0, 0, 0, 0, 0, 0, 0, 0}, std::nullopt},
        {{2, 1, 0x80}, std::nullopt},
        {{2, 2, 0, 0x7F}, std::nullopt},
        {{2, 0}, std::nullopt},
        {{4, 1, 1}, std::nullopt}};
    for (const auto& [bytes, number] : numbers) {
        Reader reader(bytes);
        EXPECT_EQ(reader.smallInteger(), number) << ::testing::PrintToString(bytes);
        EXPECT_EQ(reader.atEnd(), number.has_value());
    }
    for (const Bytes& faulty : {Bytes{3, 2, 1, 0xFE}, {3, 0}}) EXPECT_FALSE(Reader(faulty).bitString()) << faulty.size();
}

TEST(Der, ObjectIdentifiersSurviveThereAndBack)
{
    EXPECT_EQ(oid("1.2.840.113549.1.1.1"), (Bytes{6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 1, 1}));
    for (const char* dotted : {"0.0", "1.39.127", "2.999.3", "2.5.29.15", "1.3.6.1.4.1.18446744073709551615"})
        EXPECT_EQ(Reader(oid(dotted)).oid(), dotted);
    for (const Bytes& faulty : {Bytes{6, 0},
                                {6, 1, 0x80},
                                {6, 2, 0x2A, 0x86},
                                {6, 3, 0x2A, 0x80, 1},
                                {6, 11, 0x2A, 0x83, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0}})
        EXPECT_EQ(Reader(faulty).oid(), std::nullopt) << ::testing::PrintToString(faulty);
}

} // namespace
} // namespace quelta::der
