#include "base/hex.h"

#include <gtest/gtest.h>

namespace quelta {
namespace {

TEST(Hex, TakesPairsOfDigitsOfEitherCaseAndNothingElse)
{
    EXPECT_EQ(fromHex(""), Bytes());
    EXPECT_EQ(fromHex("09afAF"), (Bytes{0x09, 0xAF, 0xAF}));
    for (const char* text : {"0", "0x12", "0g", "@0", "/0", ":0", "G0", "`0", "1 "})
        EXPECT_EQ(fromHex(text), std::nullopt) << text;
}

} // namespace
} // namespace quelta
