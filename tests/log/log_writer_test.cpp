#include "support/child_process.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include "log/log_writer.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <atomic>
#include <ctime>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;

// What `body` prints on standard output.
template <class Body>
std::string printedBy(Body body)
{
    ::testing::internal::CaptureStdout();
    body();
    return ::testing::internal::GetCapturedStdout();
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

class LogWriter : public ::testing::Test {
protected:
    LogWriter() { setLogLevel(3); }

    LogFolder log;
};

TEST_F(LogWriter, LineIsStampTagTextAndOneLineFeed)
{
    SYSTEMTIME before{};
    GetLocalTime(&before);
    logDebug("one\r\ntwo ");
    const std::string text = log.takeText();
    const std::regex line(R"((\d\d)/(\d\d)::(\d\d):(\d\d):(\d\d):(\d\d\d)-> ->DEBUG ::=>one\r\ntwo \n)");
    std::smatch fields;
    ASSERT_TRUE(std::regex_match(text, fields, line)) << text;
    SYSTEMTIME after{};
    GetLocalTime(&after);
    if (before.wDay != after.wDay || before.wHour != after.wHour) return; // the test itself ran into the next hour
    EXPECT_EQ(std::stoi(fields[1]), before.wDay);
    EXPECT_EQ(std::stoi(fields[2]), before.wMonth);
    EXPECT_EQ(std::stoi(fields[3]), before.wHour);
    const auto milliseconds = [](int minute, int second, int rest) { return (minute * 60 + second) * 1000 + rest; };
    const int stamped = milliseconds(std::stoi(fields[4]), std::stoi(fields[5]), std::stoi(fields[6]));
    EXPECT_GE(stamped, milliseconds(before.wMinute, before.wSecond, before.wMilliseconds));
    EXPECT_LE(stamped, milliseconds(after.wMinute, after.wSecond, after.wMilliseconds));
}

TEST_F(LogWriter, EveryLevelHasItsTag)
{
    for (const int level : {1, 2, 3, 0, -7, 4}) writeLog(level, "x");
    log.expect({{"EXCEP ::=>", "x"}, error("x"), debug("x"), {"INFO  ::=>", "x"}, {"INFO  ::=>", "x"}, {"INFO  ::=>", "x"}});
}

TEST_F(LogWriter, NumbersAreSpelledByTheirType)
{
    const unsigned char bytes[] = {0x0A, 0xF0};
    logError("", static_cast<unsigned char>(200), " ", static_cast<short>(-1), " ", 0x80090020U, " ", INT64_MIN, " ", UINT64_MAX);
    logError("[", hex(bytes), "] [", hex({}), "] ", narrowed(L"A\u0142\u00FC"), std::string(" text"), std::string_view(" view"));
    log.expect({error("200 -1 2148073504 -9223372036854775808 18446744073709551615"), error("[0AF0] [] AB\xFC text view")});
}

TEST_F(LogWriter, FirstLineIsLostWhereNoFolderIsYet)
{
    LogFolder fresh(LogFolder::Folders::missing);
    EXPECT_EQ(printedBy([] { logError("first"); }), "\nUnable to write log");
    EXPECT_EQ(printedBy([] { logError("second"); }), "");
    fresh.expect({error("second")});

    // Deleted while the process runs: the same again.
    std::filesystem::remove_all(fresh.path() / "Oskvar");
    EXPECT_EQ(printedBy([] { logError("third"); }), "\nUnable to write log");
    logError("fourth");
    EXPECT_THAT(readFile(fresh.file()), ::testing::EndsWith("->ERROR ::=>fourth\n"));
}

// Written all the same, the line would go to the root of the drive: not to be tried out here.
TEST_F(LogWriter, MissingTemporaryFolderLeavesNoPath)
{
    SetEnvironmentVariableA("TMP", (log.path() / "gone").string().c_str());
    LogPath path{};
    path.fill('x');
    EXPECT_EQ(getLogBaseFolderPath(path), -1);
    EXPECT_THAT(path, ::testing::Each('\0'));
    std::ofstream(log.path() / "gone") << "a file, no folder";
    EXPECT_EQ(getLogBaseFolderPath(path), -1);
}

TEST_F(LogWriter, FolderIsTheProcessNameUpToItsFirstDot)
{
    for (const auto& [file, folder] : {std::pair("a.b.exe", "a"), std::pair("nodot", "nodot")}) {
        const auto copy = log.path() / file;
        std::filesystem::copy_file(ownExecutable(), copy);
        std::filesystem::create_directories(log.path() / "Oskvar" / folder);
        EXPECT_EQ(runDisabledTest(copy, "LogWriterChild.DISABLED_WritesOneLine", 60s), 0U);
        EXPECT_THAT(readFile(log.path() / "Oskvar" / folder / log.file().filename()),
                    ::testing::EndsWith("->DEBUG ::=>of a child\n"));
    }
}

TEST(LogWriterChild, DISABLED_WritesOneLine)
{
    logDebug("of a child");
}

TEST_F(LogWriter, InstalledMutexIsHeldForTheLine)
{
    std::mutex mutex;
    logMutexSlot() = &mutex;
    mutex.lock();
    std::atomic<bool> written = false;
    std::thread writer([&] {
        logError("after the lock");
        written = true;
    });
    Sleep(200);
    EXPECT_FALSE(written);
    EXPECT_EQ(log.takeText(), "");
    mutex.unlock();
    writer.join();
    logMutexSlot() = nullptr;
    log.expect({error("after the lock")});
}

// Under Wine a write for appending looks up the end of the file first, so that a line may be overwritten by another of its
// length; never is one torn.
TEST_F(LogWriter, LinesOfSeveralThreadsDoNotTear)
{
    constexpr int writers = 4;
    constexpr int linesEach = 250;
    {
        std::vector<std::jthread> threads;
        for (int writer = 0; writer < writers; ++writer) {
            threads.emplace_back([writer] {
                for (int line = 0; line < linesEach; ++line) logDebug("writer ", writer, " line ", 1000 + line, " end");
            });
        }
    }
    std::set<std::string> seen;
    for (const LogLine& line : log.takeLines()) {
        static const std::regex whole("writer [0-3] line 1[0-2][0-9][0-9] end");
        EXPECT_EQ(line.tag, "DEBUG ::=>");
        EXPECT_TRUE(std::regex_match(line.text, whole)) << line;
        EXPECT_TRUE(seen.insert(line.text).second) << "twice: " << line;
    }
    EXPECT_GE(seen.size(), writers * linesEach * 95 / 100);
}

} // namespace quelta::test
