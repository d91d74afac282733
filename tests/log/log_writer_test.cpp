#include "support/child_process.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include "base/windows_objects.h"
#include "log/log_writer.h"
#include "log/utils.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <thread>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

std::string stampOfNow()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%02d/%02d::%02d:%02d:%02d:%03d-> ->DEBUG ::=>text", now.wDay, now.wMonth, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
    return text.data();
}

} // namespace

class LogWriter : public ::testing::Test {
protected:
    LogWriter() { setLogLevel(3); }

    LogFolder log;
};

TEST_F(LogWriter, StampIsTheLocalTimeWithTheDayFirst)
{
    const std::string before = stampOfNow();
    logDebug("text");
    const std::string after = stampOfNow();
    const std::string line = log.takeText();
    if (before.substr(0, 5) == after.substr(0, 5)) {
        EXPECT_THAT(line, ::testing::AllOf(::testing::Ge(before), ::testing::Le(after + "\n")));
    }
}

TEST_F(LogWriter, FolderIsTheProcessNameUpToItsFirstDot)
{
    for (const auto& [file, folder] : {std::pair("a.b.exe", "a"), std::pair("nodot", "nodot")}) {
        std::filesystem::copy_file(ownExecutable(), log / file);
        std::filesystem::create_directories(log / "Oskvar" / folder);
        EXPECT_EQ(runDisabledTest(log / file, "LogWriterChild.DISABLED_WritesOneLine"), 0U);
        EXPECT_THAT(toText(contentOf(log / "Oskvar" / folder / log.file().filename())), EndsWith("->DEBUG ::=>of a child\n"));
    }
}

TEST(LogWriterChild, DISABLED_WritesOneLine)
{
    logDebug("of a child");
}

// A line would go to the root of the drive, under Wine to the root of the machine. So the test writes none.
TEST_F(LogWriter, TemporaryFolderThatIsNotThereLeavesAnEmptyPath)
{
    SetEnvironmentVariableW(L"TMP", (log / "gone").c_str());
    LogPath path{'x'};
    EXPECT_EQ(getLogBaseFolderPath(path), -1);
    EXPECT_THAT(path, ::testing::Each('\0'));
}

// Other programs may have the file open to read, write or delete it.
TEST_F(LogWriter, LineIsWrittenWhileOthersHaveTheFileOpen)
{
    constexpr DWORD everything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    File others = fileOf(CreateFileW(log.file().c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, everything, nullptr, CREATE_NEW,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(others);
    logDebug("of both");
    others.reset();
    EXPECT_THAT(log.takeLines(), ElementsAre(debug("of both")));
}

TEST_F(LogWriter, InstalledMutexIsHeldForTheLine)
{
    std::mutex mutex;
    logMutexSlot() = &mutex;
    mutex.lock();
    std::jthread writer([] { logError("after the lock"); });
    Sleep(200);
    EXPECT_EQ(log.takeText(), "");
    mutex.unlock();
    writer.join();
    logMutexSlot() = nullptr;
    EXPECT_THAT(log.takeLines(), ElementsAre(error("after the lock")));
}

// Under Wine a write for appending looks up the end of the file first, which another write moves page by page. So lines overwrite
// each other, and up to two tear. Lines in two pieces tear by dozens.
TEST_F(LogWriter, LinesOfSeveralThreadsDoNotTear)
{
    constexpr int writers = 4, linesEach = 1000;
    std::array<std::jthread, writers> threads;
    for (auto& thread : threads)
        thread = std::jthread([] {
            for (int line = 0; line < linesEach; ++line) logDebug("a line of ", "one of ", 4, " threads");
        });
    for (auto& thread : threads) thread.join();
    const auto lines = log.takeLines();
    const auto whole = std::ranges::count(lines, debug("a line of one of 4 threads"));
    EXPECT_LE(std::ssize(lines), whole + 10) << "torn lines";
    EXPECT_GE(whole, writers * linesEach * 9 / 10) << "lost lines";
}

TEST(LogUtils, SplitKeepsEmptyPiecesAndAlwaysGivesOneAndHexNeedsALength)
{
    EXPECT_EQ(Utils::toHex(reinterpret_cast<const unsigned char*>("\xAB"), 1), "AB");
    EXPECT_EQ(Utils::toHex(nullptr, -1), "");
    EXPECT_THAT(Utils::split("nodot", "."), ElementsAre("nodot"));
    EXPECT_THAT(Utils::split("", "."), ElementsAre(""));
    EXPECT_THAT(Utils::split(".a..", "."), ElementsAre("", "a", "", ""));
    EXPECT_THAT(Utils::split("1--2---3", "--"), ElementsAre("1", "2", "-3"));
    EXPECT_THAT(Utils::split("endless", ""), ElementsAre("endless"));
}

} // namespace quelta::test
