#include "support/log_folder.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <sstream>

namespace quelta::test {

namespace {

std::string temporaryFolder()
{
    std::array<char, MAX_PATH + 1> path{};
    GetTempPathA(static_cast<DWORD>(path.size()), path.data());
    return path.data();
}

std::string processName()
{
    std::array<char, MAX_PATH + 1> path{};
    GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::string file = std::filesystem::path(path.data()).filename().string();
    return file.substr(0, file.find('.'));
}

std::filesystem::path freshFolder(const std::string& parent)
{
    static int count = 0;
    return std::filesystem::path(parent) / ("quelta-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++count));
}

std::string today()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d", now.wYear, now.wMonth, now.wDay);
    return text.data();
}

// Both stand for the temporary folder.
void useFolder(const std::string& path)
{
    SetEnvironmentVariableA("TMP", path.c_str());
    SetEnvironmentVariableA("TEMP", path.c_str());
}

LogLine parse(const std::string& line)
{
    constexpr std::string_view mark = "-> ->";
    constexpr std::size_t tagSize = 10;
    const auto at = line.find(mark);
    if (at == std::string::npos || line.size() < at + mark.size() + tagSize) return {"not a line of the log: ", line};
    const std::string rest = line.substr(at + mark.size());
    return {rest.substr(0, tagSize), rest.substr(tagSize)};
}

bool isOfMonitorThread(const LogLine& line)
{
    return line.text == "Device monitor thread started." || line.text == "Device monitor thread stopped.";
}

} // namespace

LogFolder::LogFolder(Folders folders) : oldTmp_(temporaryFolder())
{
    path_ = freshFolder(oldTmp_);
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(folders == Folders::made ? path_ / "Oskvar" / processName() : path_);
    useFolder(path_.string());
}

LogFolder::~LogFolder()
{
    useFolder(oldTmp_);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path LogFolder::file() const
{
    return path_ / "Oskvar" / processName() / (today() + ".LOG");
}

std::string LogFolder::takeText()
{
    std::ifstream stream(file(), std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(stream), {}};
    const std::string text = all.substr(std::min(seen_, all.size()));
    seen_ = all.size();
    return text;
}

std::vector<LogLine> LogFolder::takeLines()
{
    std::istringstream text(takeText());
    std::vector<LogLine> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(parse(line));
    std::erase_if(lines, isOfMonitorThread);
    return lines;
}

void LogFolder::expect(const std::vector<LogLine>& expected, std::source_location where)
{
    const ::testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "the log");
    EXPECT_THAT(takeLines(), ::testing::ElementsAreArray(expected));
}

} // namespace quelta::test
