// Texts in the forms that Windows wants them in. What has no place in the other form becomes a replacement character, where
// nothing else is said.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quelta {

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

// In the system's code page; nothing if a character has no place in it.
std::optional<std::string> toCodePage(std::wstring_view wide);

// Each unit keeps its low 8 bits.
std::string toNarrow(std::wstring_view wide);

} // namespace quelta
