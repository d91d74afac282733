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

// Returns the names of the imported DLLs. Nullopt if the bytes are no 64-bit DLL or program.
std::optional<std::vector<std::string>> importsOf(ByteView file);

enum class Compiler {
    unknown,
    visualCpp,
    gcc,
};

// Returns the compiler of a DLL with these imports, as the imported runtimes tell. Unknown if the runtime is linked in.
Compiler compilerOf(const std::vector<std::string>& imports);

// Returns whether the file exports the function. False also if the bytes are no 64-bit DLL or program.
bool exportsFunction(ByteView file, std::string_view name);

} // namespace quelta
