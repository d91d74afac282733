// Texts in the forms that Windows wants them in.
#pragma once

#include "base/text.h"

#include <optional>

namespace quelta {

// Half a surrogate pair becomes a replacement character.
std::string toUtf8(std::wstring_view wide);

// The text in the system's code page; nullopt if a character has no place in it.
std::optional<std::string> toCodePage(std::wstring_view wide);

} // namespace quelta
