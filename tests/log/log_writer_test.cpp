#include "support/call_with_last_error.h"
#include "support/child_process.h"
#include "support/exhausted_memory.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include "log/log_writer.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <atomic>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;

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

TEST_F(LogWriter, StampIsTheLocalTimeWithTheDayFirst)
{
    SYSTEMTIME before{};
    GetLocalTime(&before);
    logDebug("text");
    const std::string text = log.takeText();
    const std::regex line(R"((\d\d)/(\d\d)::(\d\d):(\d\d):(\d\d):(\d\d\d)-> ->DEBUG ::=>text\n)");
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

TEST_F(LogWriter, LastErrorSurvivesALineAtEveryLevel)
{
    const auto keepsLastError = [] {
        return callWithLastError([] {
                   logDebug("debug");
                   logError("error");
                   return 0;
               })
            .lastErrorKept();
    };
    for (const DWORD level : {0, 2, 3}) {
        setLogLevel(level);
        EXPECT_TRUE(keepsLastError()) << "level " << level;
    }
    deleteLogLevel();
    EXPECT_TRUE(keepsLastError()) << "no level";
    setLogLevel(3);
    ::testing::internal::CaptureStdout();
    const LogFolder unmade(LogFolder::Folders::missing);
    EXPECT_TRUE(keepsLastError()) << "the line can't be written";
    ::testing::internal::GetCapturedStdout();
}

// One allocation after the other is refused.
TEST_F(LogWriter, LineThatFindsNoMemoryIsOnlyLost)
{
    std::set<std::string> printed;
    bool refused = true;
    for (int allowed = 0; refused; ++allowed) {
        ::testing::internal::CaptureStdout();
        {
            const RefusedAllocation refusal(allowed);
            logDebug("a line that is longer than what a string keeps inside itself");
            refused = refusal.happened();
        }
        printed.insert(::testing::internal::GetCapturedStdout());
    }
    EXPECT_THAT(printed, ::testing::ElementsAre("", "Exception in Create Log Folder: std::bad_alloc\n",
                                                "Exception in getProcessName(): std::bad_alloc\n",
                                                "Exception in write log : std::bad_alloc\n"));
    log.forget();
    logDebug("next");
    log.expect({debug("next")});
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
