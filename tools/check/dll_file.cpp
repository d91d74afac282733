#include "tools/check/dll_file.h"

#include "tools/console/files.h"

namespace quelta::tools {

namespace {

std::string faultOf(ByteView file)
{
    if (file.empty()) return "is empty";
    switch (dllKindOf(file)) {
    case DllKind::none: return "is no DLL";
    case DllKind::otherProcessor: return "is not a 64-bit DLL (x64)";
    case DllKind::cutShort: return "is cut short";
    case DllKind::x64: break;
    }
    return {};
}

} // namespace

DllFile readDllFile(const std::filesystem::path& path)
{
    constexpr std::size_t limit = std::size_t{256} * 1024 * 1024;
    const Bytes file = readSmallFile(path, limit);
    return {faultOf(file), importsOf(file).value_or(std::vector<std::string>()), compilerOf(file)};
}

} // namespace quelta::tools
