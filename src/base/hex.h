#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta {

// Returns upper-case hexadecimal: two characters for each byte, no separators.
std::string toHex(ByteView bytes);

// Returns the value of a hexadecimal digit in upper or lower case; nullopt for any other character.
std::optional<unsigned char> hexDigit(char character);

} // namespace quelta
