#include "tools/console/text.h"

#include "common/text.h"
#include "tools/console/failure.h"

#include <algorithm>
#include <cstdio>

namespace quelta::tools {

std::string folded(std::string_view text)
{
    std::wstring wide = toWide(text);
    CharLowerBuffW(wide.data(), static_cast<DWORD>(wide.size()));
    return toUtf8(wide);
}

FILETIME timeNow()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return now;
}

std::string timeText(const FILETIME& time)
{
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&time, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u UTC", unsigned{parts.wYear}, unsigned{parts.wMonth},
                  unsigned{parts.wDay}, unsigned{parts.wHour}, unsigned{parts.wMinute}, unsigned{parts.wSecond});
    return text;
}

FILETIME timeOf(const std::string& text)
{
    SYSTEMTIME parts{};
    FILETIME time{};
    int length = 0;
    // Each number has few digits: NOLINTNEXTLINE(bugprone-unchecked-string-to-number-conversion)
    const int count = std::sscanf(text.c_str(), "%4hu-%2hu-%2hu%n%*1[T ]%2hu:%2hu%n:%2hu%n", &parts.wYear, &parts.wMonth,
                                  &parts.wDay, &length, &parts.wHour, &parts.wMinute, &length, &parts.wSecond, &length);
    const std::string_view rest = std::string_view(text).substr(static_cast<std::size_t>(length));
    const bool whole = count == 3 || count >= 5;
    if (!whole || !(rest.empty() || rest == "Z") || !SystemTimeToFileTime(&parts, &time))
        throw Failure(text + " is no time; write it as 2026-11-25 or 2026-11-25T10:00:00Z");
    return time;
}

std::string wrapped(std::string_view line, std::size_t width)
{
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t gap = line.find("  ", begin);
    const std::size_t column = gap == std::string_view::npos ? begin : line.find_first_not_of(' ', gap);
    const std::string indent(std::min(column < width / 2 ? column : begin, width / 2), ' ');
    std::string text;
    for (std::size_t room = width; line.size() > room; room = width - indent.size()) {
        std::size_t end = line.rfind(' ', room);
        // A word that is longer than a line is not broken.
        if (end == std::string_view::npos || (text.empty() && end <= indent.size())) end = line.find(' ', room);
        if (end == std::string_view::npos) break;
        text += std::string(line.substr(0, end)) + '\n' + indent;
        line.remove_prefix(end + 1);
    }
    return text + std::string(line);
}

std::filesystem::path pathOf(std::string_view text)
{
    return toWide(text);
}

std::string nameOf(const std::filesystem::path& path)
{
    return toUtf8(path.native());
}

} // namespace quelta::tools
