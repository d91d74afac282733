#include "tools/check/dll_file.h"

#include "tools/console/files.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace quelta::tools {

namespace {

// Reads a record. Bytes beyond the file's end are zero.
template <class Record>
Record recordAt(ByteView file, std::size_t offset)
{
    Record record{};
    if (offset < file.size()) std::memcpy(&record, file.data() + offset, std::min(sizeof record, file.size() - offset));
    return record;
}

std::string faultOf(ByteView file)
{
    if (file.empty()) return "is empty";
    const auto dos = recordAt<IMAGE_DOS_HEADER>(file, 0);
    const auto start = static_cast<std::size_t>(std::max<LONG>(dos.e_lfanew, 0));
    const auto headers = recordAt<IMAGE_NT_HEADERS64>(file, start);
    if (dos.e_magic != IMAGE_DOS_SIGNATURE || headers.Signature != IMAGE_NT_SIGNATURE) return "is no DLL";
    if (headers.FileHeader.Machine == IMAGE_FILE_MACHINE_I386) return "is a 32-bit DLL";
    if (headers.FileHeader.Machine != IMAGE_FILE_MACHINE_AMD64) return "is a DLL for another processor";
    const std::size_t sections = start + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + headers.FileHeader.SizeOfOptionalHeader;
    for (std::size_t i = 0; i < headers.FileHeader.NumberOfSections; ++i) {
        const auto section = recordAt<IMAGE_SECTION_HEADER>(file, sections + i * sizeof(IMAGE_SECTION_HEADER));
        if (std::size_t{section.PointerToRawData} + section.SizeOfRawData > file.size()) return "is cut short";
    }
    return {};
}

} // namespace

DllFile readDllFile(const std::filesystem::path& path)
{
    constexpr std::size_t limit = std::size_t{256} * 1024 * 1024;
    const Bytes file = readSmallFile(path, limit);
    DllFile dll{faultOf(file), importsOf(file).value_or(std::vector<std::string>())};
    dll.compiler = compilerOf(dll.imports);
    return dll;
}

} // namespace quelta::tools
