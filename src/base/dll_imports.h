// Which DLLs a DLL needs, and what that says of its compiler.
#pragma once

#include "base/bytes.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quelta {

// Of the bytes of a file, whatever they are; nothing if that is no 64-bit DLL or program.
std::optional<std::vector<std::string>> importsOf(ByteView file);

// Whether a DLL of this name is a runtime that Microsoft's compiler links, and nothing of mingw-w64's that this module could work
// with.
bool isMicrosoftRuntime(std::string_view import);

} // namespace quelta
