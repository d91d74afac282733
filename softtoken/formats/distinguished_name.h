#pragma once

#include "base/bytes.h"

#include <string>

namespace quelta::softtoken {

// From "CN=Ada, O=Example, C=IN" (a backslash takes the next character as it is), in the order as written; a text without an
// equals sign is a common name. Throws TokenError for attributes it does not know.
Bytes encodeName(const std::string& text);

} // namespace quelta::softtoken
