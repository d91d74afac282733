// Texts inside the tool are UTF-8; what becomes of them at its edges.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace quelta::tools {

// Lower case, for comparisons that don't mind the case.
std::string folded(std::string_view text);

FILETIME timeNow();
// "2026-11-25 10:00:00 UTC"
std::string timeText(const FILETIME& time);
// A day ("2026-11-25", its beginning) or a moment ("2026-11-25T10:00:00Z", the seconds and the Z may be left out), UTC. Throws a
// Failure.
FILETIME timeOf(const std::string& text);

// Breaks a line that is longer than `width` between words; what follows a break stands under the second column of the line, which
// two blanks set apart, or else under its beginning.
std::string wrapped(std::string_view line, std::size_t width);

std::filesystem::path pathOf(std::string_view text);
std::string nameOf(const std::filesystem::path& path);

} // namespace quelta::tools
