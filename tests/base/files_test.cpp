#include "base/files.h"

#include <gtest/gtest.h>

#include <fstream>

namespace quelta {
namespace {

class FileReplacementTest : public ::testing::Test {
protected:
    FileReplacementTest() { std::filesystem::create_directory(folder_); }
    ~FileReplacementTest() override { std::filesystem::remove_all(folder_); }

    std::string content() const
    {
        std::ifstream file(target_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    auto filesInFolder() const { return std::distance(std::filesystem::directory_iterator(folder_), {}); }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("replacement" + std::to_string(GetCurrentProcessId()));
    const std::filesystem::path target_ = folder_ / L"t\u00E4rget";
};

TEST_F(FileReplacementTest, TakesTheTargetsPlaceAtTheEndAlone)
{
    for (const std::string_view text : {"old", "newer"}) {
        FileReplacement file(target_, L".new");
        const std::string before = content();
        ASSERT_TRUE(file.write(toBytes(text)));
        EXPECT_EQ(content(), before);
        EXPECT_TRUE(file.commit());
        EXPECT_EQ(content(), text);
        EXPECT_EQ(filesInFolder(), 1);
    }
    FileReplacement(target_, L".new").write(toBytes("never"));
    EXPECT_EQ(content(), "newer");
    EXPECT_EQ(filesInFolder(), 1);
}

TEST_F(FileReplacementTest, RefusesWhereAnotherWritesUnderTheSameName)
{
    FileReplacement first(target_, L".new");
    {
        const FileReplacement second(target_, L".new");
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_FALSE(second);
    }
    EXPECT_TRUE(first.write(toBytes("first")) && first.commit());
    EXPECT_EQ(content(), "first");
}

TEST_F(FileReplacementTest, GivesUpOnATargetThatCannotBeReplaced)
{
    std::filesystem::create_directory(target_);
    FileReplacement file(target_, L".new");
    EXPECT_FALSE(file.commit());
    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(filesInFolder(), 1);
}

} // namespace
} // namespace quelta
