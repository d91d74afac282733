// What the file of a DLL says of it, without loading it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quelta::tools {

enum class Compiler { unknown, visualCpp, gcc };

struct DllFile {
    // Why it can't be loaded, as in "is a 32-bit DLL"; empty if nothing speaks against it.
    std::string fault;
    std::vector<std::string> imports;
    // The runtimes that the DLL imports tell the compiler; unknown if they are linked in.
    Compiler compiler = Compiler::unknown;
};

// Throws a Failure if the file can't be read.
DllFile readDllFile(const std::filesystem::path& path);

} // namespace quelta::tools
