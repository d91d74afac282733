#include "common/dll_imports.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace quelta {

namespace {

// More than any DLL has; a file may claim that all of its bytes are one name, thousands of times.
constexpr std::size_t mostImports = 1000;
constexpr std::size_t longestName = 260;

// A record wherever it stands in the file.
template <class Record>
std::optional<Record> recordAt(ByteView file, std::size_t offset)
{
    if (offset > file.size() || file.size() - offset < sizeof(Record)) return std::nullopt;
    Record record;
    std::memcpy(&record, file.data() + offset, sizeof record);
    return record;
}

// A file's sections stand elsewhere in memory; addresses are those in memory.
class Image {
public:
    Image(ByteView file, std::size_t sections, std::size_t count) : file_(file), sections_(sections), count_(count) {}

    std::optional<std::size_t> offsetOf(DWORD address) const
    {
        for (std::size_t i = 0; i < count_; ++i) {
            const auto section = recordAt<IMAGE_SECTION_HEADER>(file_, sections_ + i * sizeof(IMAGE_SECTION_HEADER));
            if (section && address >= section->VirtualAddress && address - section->VirtualAddress < section->SizeOfRawData)
                return std::size_t{section->PointerToRawData} + (address - section->VirtualAddress);
        }
        return std::nullopt;
    }

    std::optional<std::string> textAt(DWORD address) const
    {
        const auto start = offsetOf(address);
        if (!start || *start >= file_.size()) return std::nullopt;
        const ByteView rest = file_.subspan(*start, std::min(longestName, file_.size() - *start));
        const auto end = std::ranges::find(rest, 0);
        if (end == rest.end()) return std::nullopt;
        return std::string(rest.begin(), end);
    }

private:
    ByteView file_;
    std::size_t sections_;
    std::size_t count_;
};

} // namespace

std::optional<std::vector<std::string>> importsOf(ByteView file)
{
    const auto dos = recordAt<IMAGE_DOS_HEADER>(file, 0);
    if (!dos || dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0) return std::nullopt;
    const auto start = static_cast<std::size_t>(dos->e_lfanew);
    const auto headers = recordAt<IMAGE_NT_HEADERS64>(file, start);
    if (!headers || headers->Signature != IMAGE_NT_SIGNATURE || headers->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC)
        return std::nullopt;
    const std::size_t sections = start + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + headers->FileHeader.SizeOfOptionalHeader;
    const Image image(file, sections, headers->FileHeader.NumberOfSections);

    std::vector<std::string> names;
    const DWORD directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    const auto table = image.offsetOf(directory);
    for (std::size_t i = 0; directory && table && i < mostImports; ++i) {
        const auto entry = recordAt<IMAGE_IMPORT_DESCRIPTOR>(file, *table + i * sizeof(IMAGE_IMPORT_DESCRIPTOR));
        const auto name = entry && entry->Name ? image.textAt(entry->Name) : std::nullopt;
        if (!name) break;
        names.push_back(*name);
    }
    return names;
}

} // namespace quelta
