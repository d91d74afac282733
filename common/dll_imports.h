#pragma once

#include "base/bytes.h"

#include <optional>
#include <string>
#include <vector>

namespace quelta {

// The names of the DLLs that a DLL or program imports, from the bytes of its file. Nullopt if the bytes are no 64-bit DLL or
// program. Any bytes are accepted: nothing is read beyond them.
std::optional<std::vector<std::string>> importsOf(ByteView file);

} // namespace quelta
