#include "support/log_folder.h"

#include "support/child_process.h"

#include <array>
#include <fstream>
#include <sstream>

namespace quelta::test {

namespace {

std::string processName()
{
    const std::string file = ownExecutable().filename().string();
    return file.substr(0, file.find('.'));
}

// Both variables name the temporary folder.
void useFolder(const std::filesystem::path& path)
{
    for (const wchar_t* name : {L"TMP", L"TEMP"}) SetEnvironmentVariableW(name, path.c_str());
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

LogFolder::LogFolder()
{
    std::filesystem::create_directories(file().parent_path());
    useFolder(path());
}

LogFolder::~LogFolder()
{
    useFolder(oldTmp_);
}

std::filesystem::path LogFolder::file() const
{
    std::array<char, 16> name{};
    GetDateFormatA(LOCALE_INVARIANT, 0, nullptr, "yyyy'-'MM'-'dd'.LOG'", name.data(), static_cast<int>(name.size()));
    return *this / "Oskvar" / processName() / name.data();
}

std::string LogFolder::takeText()
{
    std::ifstream stream(file(), std::ios::binary);
    const auto end = std::max<std::streamoff>(stream.seekg(0, std::ios::end).tellg(), 0);
    std::string text(static_cast<std::size_t>(std::max<std::streamoff>(end - seen_, 0)), '\0');
    stream.seekg(std::exchange(seen_, end));
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
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

} // namespace quelta::test
