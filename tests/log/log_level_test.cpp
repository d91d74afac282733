#include "support/call_with_last_error.h"
#include "support/log_folder.h"
#include "support/machine_registry.h"

#include "log/log_writer.h"

#include <gtest/gtest.h>

#include <string>

namespace quelta::test {

namespace {

using namespace std::string_literals;

enum class Written { nothing, errors, all };

struct Level {
    const char* name;
    DWORD type;
    std::string data;
    Written written;
};

std::string dword(DWORD value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// The first byte alone decides, and what can't be read counts as 2.
const Level levels[] = {
    {"3", REG_DWORD, dword(3), Written::all},
    {"2", REG_DWORD, dword(2), Written::errors},
    {"1", REG_DWORD, dword(1), Written::nothing},
    {"0", REG_DWORD, dword(0), Written::nothing},
    {"4", REG_DWORD, dword(4), Written::errors},
    {"127", REG_DWORD, dword(127), Written::errors},
    {"128", REG_DWORD, dword(128), Written::nothing},
    {"255", REG_DWORD, dword(255), Written::nothing},
    {"256", REG_DWORD, dword(256), Written::nothing},
    {"259", REG_DWORD, dword(259), Written::all},
    {"64 bits", REG_QWORD, dword(3) + dword(0), Written::all},
    {"one byte", REG_BINARY, "\x03"s, Written::all},
    {"no byte", REG_BINARY, ""s, Written::nothing},
    {"32 bytes", REG_BINARY, "\x03" + std::string(31, 'x'), Written::all},
    {"33 bytes", REG_BINARY, "\x03" + std::string(32, 'x'), Written::errors},
    {"a digit", REG_SZ, "3\0"s, Written::errors},
    {"an empty text", REG_SZ, "\0"s, Written::nothing},
    {"a control character", REG_SZ, "\x03\0"s, Written::all},
    {"several texts", REG_MULTI_SZ, "3\0\0"s, Written::errors},
};

void writeOneOfEach()
{
    logDebug("a debug line");
    logError("an error line");
}

std::vector<LogLine> linesFor(Written written)
{
    if (written == Written::nothing) return {};
    if (written == Written::errors) return {error("an error line")};
    return {debug("a debug line"), error("an error line")};
}

} // namespace

class LogLevel : public ::testing::Test {
protected:
    LogFolder log;
};

TEST_F(LogLevel, ComesFromTheFirstByteOfAnyKindOfValueAndIsReadForEachLine)
{
    for (const Level& level : levels) {
        SCOPED_TRACE(level.name);
        setLogLevelValue(level.type, level.data.data(), static_cast<DWORD>(level.data.size()));
        writeOneOfEach();
        log.expect(linesFor(level.written));
    }
}

TEST_F(LogLevel, WithoutValueOrKeyOnlyErrorsAreWritten)
{
    deleteLogLevel();
    writeOneOfEach();
    log.expect(linesFor(Written::errors));

    RegDeleteTreeA(HKEY_LOCAL_MACHINE, "Software\\Oskvar");
    writeOneOfEach();
    log.expect(linesFor(Written::errors));
}

TEST_F(LogLevel, LastErrorSurvivesALineAtEveryLevel)
{
    const auto keepsLastError = [] {
        const auto called = callWithLastError([] {
            writeOneOfEach();
            return 0;
        });
        return called.lastErrorKept();
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

} // namespace quelta::test
