#include "tools/token/provider_log.h"

#include "base/windows_objects.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>

namespace quelta::tools {

namespace {

constexpr std::string_view errorTag = "->ERROR ::=>";

std::uintmax_t endAtStart = 0;

std::wstring ownName()
{
    std::array<wchar_t, 1024> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring name = std::filesystem::path(path.data()).filename().native();
    return name.substr(0, name.find(L'.'));
}

std::uintmax_t sizeOf(const std::filesystem::path& file)
{
    std::error_code absent;
    const auto size = std::filesystem::file_size(file, absent);
    return absent ? 0 : size;
}

} // namespace

std::filesystem::path logFolder()
{
    std::array<wchar_t, 1024> folder{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    return std::filesystem::path(folder.data()) / "Oskvar";
}

std::filesystem::path ownLogFile()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::array<char, 64> name{};
    std::snprintf(name.data(), name.size(), "%04u-%02u-%02u.LOG", unsigned{now.wYear}, unsigned{now.wMonth}, unsigned{now.wDay});
    return logFolder() / ownName() / name.data();
}

void rememberLogEnd()
{
    // The provider makes one folder at a time, and loses a line for each that was not there.
    std::error_code ignored;
    std::filesystem::create_directories(ownLogFile().parent_path(), ignored);
    endAtStart = sizeOf(ownLogFile());
}

std::vector<std::string> ownErrorLines()
{
    std::ifstream file(ownLogFile(), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(endAtStart));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        const std::size_t tag = line.find(errorTag);
        if (tag != std::string::npos) lines.push_back(line.substr(tag + errorTag.size()));
    }
    return lines;
}

std::optional<long> tokenResult()
{
    const auto lines = ownErrorLines();
    if (lines.empty()) return std::nullopt;
    const std::string& last = lines.back();
    const std::size_t digits = last.find_last_not_of("-0123456789") + 1;
    long number = 0;
    const auto read = std::from_chars(last.data() + digits, last.data() + last.size(), number);
    if (digits == last.size() || read.ec != std::errc()) return std::nullopt;
    return number;
}

bool dialogFailed()
{
    for (const std::string& line : ownErrorLines())
        if (line.starts_with("Password dialog creation failed")) return true;
    return false;
}

} // namespace quelta::tools
