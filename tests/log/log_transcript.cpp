#include "support/log_folder.h"
#include "support/machine_registry.h"
#include "support/transcript.h"
#include "support/words.h"

#include "log/log_writer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

namespace quelta::test {

namespace {

using namespace std::string_literals;

std::string shown(const std::string& text)
{
    static const std::regex time("[0-9]{2}/[0-9]{2}::[0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3}");
    std::string result = std::regex_replace(text, time, "DD/MM::hh:mm:ss:mmm");
    result = std::regex_replace(result, std::regex("\r"), "\\r");
    return "\"" + std::regex_replace(result, std::regex("\n"), "\\n") + "\"";
}

struct Level {
    const char* name;
    DWORD type;
    std::string data;
};

std::string dword(DWORD value)
{
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

const Level levels[] = {
    {"DWORD 3", REG_DWORD, dword(3)},
    {"DWORD 2", REG_DWORD, dword(2)},
    {"DWORD 1", REG_DWORD, dword(1)},
    {"DWORD 0", REG_DWORD, dword(0)},
    {"DWORD 4", REG_DWORD, dword(4)},
    {"DWORD 127", REG_DWORD, dword(127)},
    {"DWORD 128", REG_DWORD, dword(128)},
    {"DWORD 255", REG_DWORD, dword(255)},
    {"DWORD 256", REG_DWORD, dword(256)},
    {"DWORD 259", REG_DWORD, dword(259)},
    {"QWORD 3", REG_QWORD, dword(3) + dword(0)},
    {"a byte 3", REG_BINARY, "\x03"s},
    {"no byte", REG_BINARY, ""s},
    {"32 bytes from 3", REG_BINARY, "\x03" + std::string(31, 'x')},
    {"33 bytes from 3", REG_BINARY, "\x03" + std::string(32, 'x')},
    {"text \"3\"", REG_SZ, "3\0"s},
    {"text \"\"", REG_SZ, "\0"s},
    {"text of the character 3", REG_SZ, "\x03\0"s},
    {"texts \"3\"", REG_MULTI_SZ, "3\0\0"s},
};

} // namespace

// What is asked of the writer, what it adds to its file, and what it prints instead.
class LogTranscript : public ::testing::Test {
protected:
    LogTranscript() { setLogLevel(3); }
    void TearDown() override { expectTranscript(lines); }

    template <class Write>
    void record(const std::string& call, Write write)
    {
        ::testing::internal::CaptureStdout();
        write();
        const std::string printed = ::testing::internal::GetCapturedStdout();
        const std::string written = log.takeText();
        lines.push_back(call);
        if (!written.empty()) lines.push_back("  file " + shown(written));
        if (!printed.empty()) lines.push_back("  printed " + shown(printed));
    }
    void logs(const std::string& text)
    {
        record("logError(" + quoted(text.c_str()) + ")", [&] { logError(text); });
    }
    void recordLevel(const std::string& name)
    {
        const auto tagsOf = [this](const char* nothing) {
            std::string tags;
            for (const LogLine& line : log.takeLines()) tags += " " + line.text;
            return tags.empty() ? nothing : tags;
        };
        logDebug("debug");
        logError("error");
        lines.push_back(name + ":" + tagsOf(" nothing"));
    }

    LogFolder log;
    std::vector<std::string> lines;
};

TEST_F(LogTranscript, LineIsTimeTagMessageAndOneLineFeed)
{
    for (const int level : {1, 2, 3, 0, -7, 4})
        record("writeLog(" + std::to_string(level) + ", \"one\\r\\ntwo \")", [&] { writeLog(level, "one\r\ntwo "); });
}

TEST_F(LogTranscript, NumbersAreSpelledByTheirTypeAndBytesInHexadecimal)
{
    const unsigned char bytes[] = {0x0A, 0xF0};
    record("numbers", [] {
        logDebug("", static_cast<unsigned char>(200), " ", static_cast<short>(-1), " ", 0x80090020U, " ", INT64_MIN, " ",
                 UINT64_MAX);
    });
    record("bytes and texts", [&] {
        logDebug("[", hex(bytes), "] [", hex({}), "] ", narrowed(L"A\u0142C"), std::string(" text"), std::string_view(" view"));
    });
}

TEST_F(LogTranscript, FirstByteOfAnyKindOfValueIsTheLevel)
{
    for (const Level& level : levels) {
        setLogLevelValue(level.type, level.data.data(), static_cast<DWORD>(level.data.size()));
        recordLevel(level.name);
    }
    deleteLogLevel();
    recordLevel("no value");
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, "Software\\Oskvar");
    recordLevel("no key");
}

TEST_F(LogTranscript, FirstLineIsLostWhereNoFolderIsYet)
{
    for (const char* text : {"the first line", "the next, after the folder was deleted"}) {
        std::filesystem::remove_all(log.path() / "Oskvar");
        log.takeText();
        for (int i = 0; i < 2; ++i) logs(text);
    }
}

TEST_F(LogTranscript, EveryLineIsLostWhereAFileStandsInTheFoldersPlace)
{
    std::filesystem::remove_all(log.path() / "Oskvar");
    std::ofstream(log.path() / "Oskvar") << "a file";
    for (int i = 0; i < 2; ++i) logs("a line");
}

} // namespace quelta::test
