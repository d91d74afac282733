// Reads the file of a DLL without loading it.
#pragma once

#include "common/dll_imports.h"

#include <filesystem>

namespace quelta::tools {

struct DllFile {
    // Why the DLL can't be loaded, as in "is cut short"; empty if nothing is wrong.
    std::string fault;
    std::vector<std::string> imports;
    Compiler compiler = Compiler::unknown;
};

// Throws a Failure if the file can't be read.
DllFile readDllFile(const std::filesystem::path& path);

// Throws a Failure if the module or the device library is missing or damaged, or if they are of different compilers: loading them
// would crash. Nothing is loaded.
void requireFittingFiles();

} // namespace quelta::tools
