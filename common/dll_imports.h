#pragma once

#include "base/bytes.h"

#include <optional>
#include <string>
#include <vector>

namespace quelta {

// Each function takes the bytes of a file. Any bytes are accepted, and nothing is read beyond them.

enum class DllKind {
    none,
    otherProcessor,
    x64,
};

DllKind dllKindOf(ByteView file);

// The names of the DLLs that a DLL or program imports. Nullopt if the bytes are no 64-bit DLL or program.
std::optional<std::vector<std::string>> importsOf(ByteView file);

// False also if the bytes are no 64-bit DLL or program.
bool exportsFunction(ByteView file, std::string_view name);

} // namespace quelta
