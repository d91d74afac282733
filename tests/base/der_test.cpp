#include "common/der_reader.h"

#include <gtest/gtest.h>

namespace quelta::der {
namespace {

TEST(Der, LengthsTakeAsFewBytesAsTheyNeedUpToFilesOfManyGigabytes)
{
    const std::pair<std::uint64_t, Bytes> rows[] = {
        {127, {4, 127}}, {128, {4, 0x81, 128}}, {256, {4, 0x82, 1, 0}}, {0x123456789, {4, 0x85, 1, 0x23, 0x45, 0x67, 0x89}}};
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
    EXPECT_FALSE(ecdsaHalves(concat({signature, null()}), 4)) << "with bytes behind it";
    EXPECT_FALSE(ecdsaHalves(sequence({smallInteger(1), smallInteger(2), null()}), 4)) << "or behind its numbers";
}

// The fuzzer sees which elements the reader refuses, and that it never leaves its bytes.
TEST(Der, ReaderLeavesAnElementOfAnotherTagUnread)
{
    const Bytes two{4, 1, 7, 5, 0};
    Reader reader(two);
    EXPECT_FALSE(reader.next(tagNull));
    EXPECT_EQ(reader.next(tagOctetString)->content[0], 7);
    EXPECT_TRUE(reader.next(tagNull));
    EXPECT_TRUE(reader.atEnd());
}

TEST(Der, NumbersOf64BitsAreReadAndLongerOnesStayUnread)
{
    const std::pair<Bytes, std::optional<std::uint64_t>> rows[] = {
        {{2, 1, 0}, 0},
        {{2, 2, 0, 0x80}, 0x80},
        {{2, 9, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, ~std::uint64_t{0}},
        {{2, 9, 1, 0, 0, 0, 0, 0, 0, 0, 0}, std::nullopt}};
    for (const auto& [bytes, number] : rows) {
        Reader reader(bytes);
        EXPECT_EQ(reader.smallInteger(), number) << ::testing::PrintToString(bytes);
        EXPECT_EQ(reader.atEnd(), number.has_value());
    }
}

TEST(Der, ObjectIdentifiersSurviveThereAndBack)
{
    EXPECT_EQ(oid("1.2.840.113549.1.1.1"), (Bytes{6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 1, 1, 1}));
    for (const char* dotted : {"0.0", "1.39.127", "2.999.3", "2.5.29.15", "1.3.6.1.4.1.18446744073709551615"})
        EXPECT_EQ(Reader(oid(dotted)).oid(), dotted);
}

} // namespace
} // namespace quelta::der
