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
    cutShort,
    x64,
};

// Returns `cutShort` if the file ends before its last section does.
DllKind dllKindOf(ByteView file);

// Returns the names of the imported DLLs. Nullopt if the bytes are no 64-bit DLL or program.
std::optional<std::vector<std::string>> importsOf(ByteView file);

enum class Compiler {
    unknown,
    visualCpp,
    gcc,
};

// Returns the compiler of a DLL, as the imported runtimes and the linker's version tell. Unknown for a DLL of Visual C++ that has
// its runtime linked in.
Compiler compilerOf(ByteView file);

// Returns whether the file exports the function. False also if the bytes are no 64-bit DLL or program.
bool exportsFunction(ByteView file, std::string_view name);

} // namespace quelta
