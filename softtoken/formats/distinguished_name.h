#pragma once

#include "base/bytes.h"

#include <string>

namespace quelta::softtoken {

// Encodes a name like "CN=Ada, O=\"Example, Inc\"" in the order as written. A text without an equals sign is a common name.
// Throws TokenError if the system does not accept the text as a name.
Bytes encodeName(const std::string& text);
// Returns a name like "CN=Ada, O=Example" in UTF-8.
std::string nameText(ByteView nameDer);
// Returns CN="text". The text may hold any character; more parts may be appended.
std::string commonName(const std::string& text);

} // namespace quelta::softtoken
