#include "log/utils.h"

#include <gmock/gmock.h>

namespace quelta::test {

using ::testing::ElementsAre;

TEST(LogUtils, SplitKeepsEmptyPiecesAndAlwaysGivesOne)
{
    EXPECT_THAT(Utils::split("a.b.exe", "."), ElementsAre("a", "b", "exe"));
    EXPECT_THAT(Utils::split("nodot", "."), ElementsAre("nodot"));
    EXPECT_THAT(Utils::split("", "."), ElementsAre(""));
    EXPECT_THAT(Utils::split(".a..", "."), ElementsAre("", "a", "", ""));
    EXPECT_THAT(Utils::split("1--2---3", "--"), ElementsAre("1", "2", "-3"));
    EXPECT_THAT(Utils::split("endless", ""), ElementsAre("endless"));
}

TEST(LogUtils, HexIsUpperCaseAndEmptyForLengthsBelowOne)
{
    const unsigned char bytes[] = {0x00, 0xAB, 0x7F, 0xFF};
    EXPECT_EQ(Utils::toHex(bytes, 4), "00AB7FFF");
    EXPECT_EQ(Utils::toHex(bytes, 0), "");
    EXPECT_EQ(Utils::toHex(bytes, -1), "");
    EXPECT_EQ(Utils::toHex(nullptr, 0), "");
}

} // namespace quelta::test
