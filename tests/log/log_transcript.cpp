#include "support/log_folder.h"
#include "support/machine_registry.h"
#include "support/recorded_calls.h"
#include "support/test_bytes.h"
#include "support/transcript.h"
#include "support/words.h"

#include "log/log_writer.h"

#include <gtest/gtest.h>

#include <regex>

namespace quelta::test {

namespace {

std::string shown(const std::string& text)
{
    static const std::regex time("[0-9]{2}/[0-9]{2}::[0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{3}");
    std::string result = std::regex_replace(text, time, "DD/MM::hh:mm:ss:mmm");
    result = std::regex_replace(result, std::regex("\r"), "\\r");
    return quoted(std::regex_replace(result, std::regex("\n"), "\\n").c_str());
}

} // namespace

// Records each call of the log writer, the text that the call adds to the file, and the text that the call prints instead.
class LogTranscript : public ::testing::Test {
protected:
    LogTranscript() { setLogLevel(3); }
    void TearDown() override { expectTranscript(lines); }

    template <class Write>
    void record(const std::string& call, Write write)
    {
        ::testing::internal::CaptureStdout();
        const auto called = callWithLastError([&] { return write(), 0; });
        const std::string printed = ::testing::internal::GetCapturedStdout();
        const std::string written = log.takeText();
        lines.push_back(call);
        if (!written.empty()) lines.push_back("  file " + shown(written));
        if (!printed.empty()) lines.push_back("  printed " + shown(printed));
        if (!called.lastErrorKept()) lines.push_back("  the last error is another");
    }
    void logs(const std::string& text)
    {
        record("logError(" + quoted(text.c_str()) + ")", [&] { logError(text); });
    }
    void recordLevel(const std::string& name)
    {
        std::string tags;
        logDebug("debug");
        logError("error");
        for (const LogLine& line : log.takeLines()) tags += " " + line.text;
        lines.push_back(name + ":" + (tags.empty() ? " nothing" : tags));
    }

    LogFolder log;
    std::vector<std::string> lines;
};

TRANSCRIPT(LogTranscript, "a line is the time, the tag, the message and one line feed")
{
    for (const int level : {1, 2, 3, 0, -7, 4})
        record("writeLog(" + std::to_string(level) + ", \"one\\r\\ntwo \")", [&] { writeLog(level, "one\r\ntwo "); });
}

TRANSCRIPT(LogTranscript, "numbers are spelled by their type, and bytes in hexadecimal")
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

TRANSCRIPT(LogTranscript, "the first byte of a value of any kind is the level")
{
    for (const DWORD level : {3, 2, 1, 0, 4, 127, 128, 255, 256, 259}) {
        setLogLevel(level);
        recordLevel("DWORD " + std::to_string(level));
    }
    const struct {
        const char* name;
        DWORD type;
        Bytes data;
    } rows[] = {
        {"QWORD 3", REG_QWORD, littleEndian({3, 0})},
        {"a byte 3", REG_BINARY, {3}},
        {"no byte", REG_BINARY, {}},
        {"32 bytes from 3", REG_BINARY, counting(32, 3)},
        {"33 bytes from 3", REG_BINARY, counting(33, 3)},
        {"text \"3\"", REG_SZ, bytesOfText("3")},
        {"text \"\"", REG_SZ, bytesOfText("")},
        {"text of the character 3", REG_SZ, bytesOfText("\x03")},
        {"texts \"3\"", REG_MULTI_SZ, {'3', 0, 0}},
    };
    for (const auto& row : rows) {
        setLogLevelValue(row.type, row.data.data(), static_cast<DWORD>(row.data.size()));
        recordLevel(row.name);
    }
    RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, "Software\\Oskvar\\Quelta", "logLevel");
    recordLevel("no value");
    RegDeleteTreeA(HKEY_LOCAL_MACHINE, "Software\\Oskvar");
    recordLevel("no key");
}

TRANSCRIPT(LogTranscript, "the first line is lost if there is no folder yet")
{
    for (const char* text : {"the first line", "the next, after the folder was deleted"}) {
        std::filesystem::remove_all(log / "Oskvar");
        log.forget();
        for (int i = 0; i < 2; ++i) logs(text);
    }
    lines.push_back("(a file stands in the folder's place)");
    std::filesystem::remove_all(log / "Oskvar");
    log.write("Oskvar", toBytes("a file"));
    for (int i = 0; i < 2; ++i) logs("a line");
}

} // namespace quelta::test
