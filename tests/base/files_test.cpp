#include "common/files.h"

#include "support/scratch_folder.h"

namespace quelta {
namespace {

class FileReplacementTest : public ::testing::Test {
protected:
    // Of the target, with nothing beside it.
    std::string contentAlone() const
    {
        EXPECT_EQ(folder_.fileCount(), 1);
        return toText(contentOf(target_));
    }

    const ScratchFolder folder_;
    const std::filesystem::path target_ = folder_ / L"t\u00E4rget";
};

// A process that was killed has left its file.
TEST_F(FileReplacementTest, TakesTheTargetsPlaceAtTheEndAlone)
{
    folder_.write(L"t\u00E4rget.new", toBytes("left behind"));
    for (const std::string_view text : {"old", "newer"}) {
        FileReplacement file(target_, L".new");
        ASSERT_TRUE(file.write(toBytes(text)));
        EXPECT_EQ(std::filesystem::exists(target_), text == "newer");
        EXPECT_TRUE(file.commit());
        EXPECT_EQ(contentAlone(), text);
    }
    FileReplacement(target_, L".new").write(toBytes("never"));
    EXPECT_EQ(contentAlone(), "newer");
}

TEST_F(FileReplacementTest, RefusesWhereAnotherWritesUnderTheSameName)
{
    FileReplacement first(target_, L".new");
    EXPECT_FALSE(FileReplacement(target_, L".new"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    EXPECT_TRUE(first.write(toBytes("first")) && first.commit());
    EXPECT_EQ(contentAlone(), "first");
}

TEST_F(FileReplacementTest, GivesUpOnATargetThatCannotBeReplaced)
{
    std::filesystem::create_directory(target_);
    EXPECT_FALSE(FileReplacement(target_, L".new").commit());
    EXPECT_NE(GetLastError(), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(folder_.fileCount(), 1);
}

} // namespace
} // namespace quelta
