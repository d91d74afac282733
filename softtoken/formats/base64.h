#pragma once

#include "base/bytes.h"

namespace quelta::softtoken {

// Throws TokenError if it is not written in base64; line ends may stand anywhere.
Bytes fromBase64(std::string_view text);
// In one line.
std::string toBase64(ByteView bytes);

} // namespace quelta::softtoken
