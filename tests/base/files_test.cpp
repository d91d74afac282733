#include "common/files.h"

#include "support/scratch_folder.h"

namespace quelta {
namespace {

class FileReplacementTest : public ::testing::Test {
protected:
    const ScratchFolder folder_;
    const std::filesystem::path target_ = folder_ / L"t\u00E4rget";
};

// A process that was killed has left its temporary file.
TEST_F(FileReplacementTest, TakesTheTargetsPlaceAtTheEndAloneAndOneAtATime)
{
    folder_.write(L"t\u00E4rget.new", toBytes("left behind"));
    {
        FileReplacement file(target_, L".new");
        EXPECT_FALSE(FileReplacement(target_, L".new"));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_TRUE(file.write(toBytes("new")) && file.commit());
    }
    FileReplacement(target_, L".new").write(toBytes("never"));
    EXPECT_EQ(toText(contentOf(target_)), "new");
    EXPECT_EQ(folder_.fileCount(), 1);
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
