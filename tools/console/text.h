// Texts inside the tool are UTF-8. These functions convert them at the edges.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace quelta::tools {

// Returns the text in lower case, for comparisons that ignore case.
std::string folded(std::string_view text);

FILETIME timeNow();
// Returns a text like "2026-11-25 10:00:00 UTC".
std::string timeText(const FILETIME& time);
// Reads a day ("2026-11-25" means its beginning) or a moment ("2026-11-25T10:00:00Z"; seconds and Z are optional), in UTC. Throws
// a Failure for other texts.
FILETIME timeOf(const std::string& text);

// Breaks a line that is longer than `width` between words. The text after a break stands under the line's second column, which
// two blanks set apart, or else under its beginning.
std::string wrapped(std::string_view line, std::size_t width);

std::filesystem::path pathOf(std::string_view text);
std::string nameOf(const std::filesystem::path& path);

} // namespace quelta::tools
