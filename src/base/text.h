#pragma once

#include <string>
#include <string_view>

namespace quelta {

// Invalid UTF-8 becomes replacement characters.
std::wstring toWide(std::string_view utf8);

// Each unit keeps its low 8 bits.
std::string toNarrow(std::wstring_view wide);

} // namespace quelta
