#pragma once

#include "base/hex.h"

namespace quelta {

// Returns the bytes of a hexadecimal text of either case. Nullopt unless the text consists of pairs of digits.
std::optional<Bytes> fromHex(std::string_view text);

} // namespace quelta
