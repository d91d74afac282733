// Converts between UTF-8 and UTF-16.
#pragma once

#include "base/text.h"

namespace quelta {

// Half a surrogate pair becomes a replacement character.
std::string toUtf8(std::wstring_view wide);

} // namespace quelta
