#pragma once

#include "base/bytes.h"

#include <string>

namespace quelta::softtoken {

// From "CN=Ada, O=\"Example, Inc\", C=XX", in the order as written; a text without an equals sign is a common name. Throws
// TokenError for what the system does not take for a name.
Bytes encodeName(const std::string& text);
// "CN=Ada, O=Example" in UTF-8.
std::string nameText(ByteView nameDer);
// A name, or the beginning of one, of a text that may hold any character.
std::string commonName(const std::string& text);

} // namespace quelta::softtoken
