#pragma once

#include <string>
#include <string_view>

namespace quelta {

// Converts UTF-8 to UTF-16. Invalid bytes become replacement characters.
std::wstring toWide(std::string_view utf8);

// Narrows a text: each UTF-16 unit keeps its low 8 bits.
std::string toNarrow(std::wstring_view wide);

} // namespace quelta
