#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta {

// Upper case, two characters a byte, no separators.
std::string toHex(ByteView bytes);

// The value of a digit of either case.
std::optional<unsigned char> hexDigit(char character);

} // namespace quelta
