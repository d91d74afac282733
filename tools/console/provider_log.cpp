#include "tools/console/provider_log.h"

#include "base/table.h"
#include "base/windows_objects.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

namespace quelta::tools {

namespace {

constexpr unsigned long noPinEntered = 0x80090020;
constexpr unsigned long pinRefusedByCryptoApi = 0x8009001A;
constexpr unsigned long pinRefusedByKeyStorage = 0x80090032;
constexpr auto dialogFailed = "Password dialog creation failed";
constexpr std::string_view errorTag = "->ERROR ::=>";
constexpr auto digits = "0123456789";

// The token's results for a PIN, as they stand at the end of the log's line. Other numbers name no cause.
struct PinResult {
    std::string_view text;
    std::string_view cause;
};

constexpr PinResult pinResults[] = {
    {"4", "the PIN is wrong, and an attempt was used; do not guess, since another wrong one may lock the token"},
    {"5", "the token's PIN is locked; whoever issued the token can unlock it"},
    {"48", "the token's clock and this computer's differ: set the computer's date and time, or use the maker's program if they "
           "are right; no attempt was used"},
};

std::uintmax_t endAtStart = 0;

// A path's own conversion takes the text for UTF-8 with some compilers.
std::filesystem::path ansiPath(const char* text)
{
    std::array<wchar_t, 1024> wide{};
    MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), static_cast<int>(wide.size()));
    return wide.data();
}

std::uintmax_t sizeOf(const std::filesystem::path& file)
{
    std::error_code absent;
    const auto size = std::filesystem::file_size(file, absent);
    return absent ? 0 : size;
}

} // namespace

// The provider asks for the folder in the system's code page. The tool must find the same folder even if its name has characters
// that the code page lacks.
std::filesystem::path logFolder()
{
    std::array<char, 1024> folder{};
    GetTempPathA(static_cast<DWORD>(folder.size()), folder.data());
    return ansiPath(folder.data()) / "Oskvar";
}

std::filesystem::path ownLogFile()
{
    std::array<char, 1024> program{};
    GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const std::wstring name = ansiPath(program.data()).filename().native();
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::array<char, 64> day{};
    std::snprintf(day.data(), day.size(), "%04u-%02u-%02u.LOG", unsigned{now.wYear}, unsigned{now.wMonth}, unsigned{now.wDay});
    return logFolder() / name.substr(0, name.find(L'.')) / day.data();
}

void rememberLogEnd()
{
    // The provider makes one folder at a time, and loses a line for each missing folder.
    std::error_code ignored;
    std::filesystem::create_directories(ownLogFile().parent_path(), ignored);
    endAtStart = sizeOf(ownLogFile());
}

std::vector<std::string> errorLinesIn(const std::filesystem::path& log, std::uintmax_t from)
{
    std::ifstream file(log, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (line.find(errorTag) != std::string::npos) lines.push_back(line);
    return lines;
}

std::vector<std::string> ownErrorLines()
{
    std::vector<std::string> lines = errorLinesIn(ownLogFile(), endAtStart);
    for (std::string& line : lines) line.erase(0, line.find(errorTag) + errorTag.size());
    return lines;
}

std::string_view causeInLog(unsigned long code)
{
    const auto lines = ownErrorLines();
    if (code == noPinEntered && std::ranges::any_of(lines, [](const auto& line) { return line.starts_with(dialogFailed); }))
        return "the PIN dialog can't be shown, as there is no display or desktop here; give the PIN with --pin-stdin";
    if (lines.empty() || (code != pinRefusedByCryptoApi && code != pinRefusedByKeyStorage)) return {};
    const PinResult* row = findRow(pinResults, &PinResult::text, lines.back().substr(lines.back().find_last_not_of(digits) + 1));
    return row ? row->cause : std::string_view();
}

} // namespace quelta::tools
