#include "common/dll_imports.h"

#include "base/microsoft_runtime.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace quelta {

namespace {

// Limits that no DLL exceeds. A damaged file may claim more.
constexpr std::size_t mostImports = 1000;
constexpr std::size_t mostExports = 65536;
constexpr std::size_t longestName = 260;

// Reads a record at any offset.
template <class Record>
std::optional<Record> recordAt(ByteView file, std::size_t offset)
{
    if (offset > file.size() || file.size() - offset < sizeof(Record)) return std::nullopt;
    Record record;
    std::memcpy(&record, file.data() + offset, sizeof record);
    return record;
}

// Returns the offset of the signature "PE".
std::optional<std::size_t> headersOf(ByteView file)
{
    const auto dos = recordAt<IMAGE_DOS_HEADER>(file, 0);
    if (!dos || dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0) return std::nullopt;
    const auto start = static_cast<std::size_t>(dos->e_lfanew);
    if (recordAt<DWORD>(file, start) != DWORD{IMAGE_NT_SIGNATURE}) return std::nullopt;
    return start;
}

// The file of a 64-bit DLL or program. Addresses are those in memory, where the sections stand elsewhere than in the file.
class Image {
public:
    static std::optional<Image> of(ByteView file)
    {
        const auto start = headersOf(file);
        const auto headers = start ? recordAt<IMAGE_NT_HEADERS64>(file, *start) : std::nullopt;
        if (!headers || headers->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) return std::nullopt;
        return Image(file, *start, *headers);
    }

    BYTE linkerVersion() const { return headers_.OptionalHeader.MajorLinkerVersion; }

    bool isCutShort() const
    {
        for (std::size_t i = 0; i < headers_.FileHeader.NumberOfSections; ++i)
            if (const auto section = this->section(i);
                !section || std::size_t{section->PointerToRawData} + section->SizeOfRawData > file_.size())
                return true;
        return false;
    }

    // Returns the address of a table of the headers; 0 if there is none.
    DWORD directory(std::size_t index) const { return headers_.OptionalHeader.DataDirectory[index].VirtualAddress; }

    std::optional<std::size_t> offsetOf(DWORD address) const
    {
        for (std::size_t i = 0; i < headers_.FileHeader.NumberOfSections; ++i) {
            const auto section = this->section(i);
            if (section && address >= section->VirtualAddress && address - section->VirtualAddress < section->SizeOfRawData)
                return std::size_t{section->PointerToRawData} + (address - section->VirtualAddress);
        }
        return std::nullopt;
    }

    // Nullopt also if the table has no such entry in the file.
    template <class Record>
    std::optional<Record> entryOf(DWORD table, std::size_t index) const
    {
        const auto start = offsetOf(table);
        return start ? recordAt<Record>(file_, *start + index * sizeof(Record)) : std::nullopt;
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
    Image(ByteView file, std::size_t start, const IMAGE_NT_HEADERS64& headers)
        : file_(file),
          headers_(headers),
          sections_(start + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + headers.FileHeader.SizeOfOptionalHeader)
    {}

    std::optional<IMAGE_SECTION_HEADER> section(std::size_t index) const
    {
        return recordAt<IMAGE_SECTION_HEADER>(file_, sections_ + index * sizeof(IMAGE_SECTION_HEADER));
    }

    ByteView file_;
    IMAGE_NT_HEADERS64 headers_;
    std::size_t sections_;
};

bool isGccRuntime(std::string_view name)
{
    return std::ranges::any_of(std::initializer_list<std::string_view>{"libstdc++", "libgcc_s", "libwinpthread"},
                               [&](std::string_view beginning) { return name.starts_with(beginning); });
}

} // namespace

DllKind dllKindOf(ByteView file)
{
    const auto start = headersOf(file);
    const auto header = start ? recordAt<IMAGE_FILE_HEADER>(file, *start + sizeof(DWORD)) : std::nullopt;
    if (!header || !(header->Characteristics & IMAGE_FILE_DLL)) return DllKind::none;
    if (header->Machine != IMAGE_FILE_MACHINE_AMD64) return DllKind::otherProcessor;
    const auto image = Image::of(file);
    return !image || image->isCutShort() ? DllKind::cutShort : DllKind::x64;
}

std::optional<std::vector<std::string>> importsOf(ByteView file)
{
    const auto image = Image::of(file);
    if (!image) return std::nullopt;
    std::vector<std::string> names;
    const DWORD table = image->directory(IMAGE_DIRECTORY_ENTRY_IMPORT);
    for (std::size_t i = 0; table && i < mostImports; ++i) {
        const auto entry = image->entryOf<IMAGE_IMPORT_DESCRIPTOR>(table, i);
        const auto name = entry && entry->Name ? image->textAt(entry->Name) : std::nullopt;
        if (!name) break;
        names.push_back(*name);
    }
    return names;
}

bool exportsFunction(ByteView file, std::string_view name)
{
    const auto image = Image::of(file);
    if (!image) return false;
    const auto table = image->entryOf<IMAGE_EXPORT_DIRECTORY>(image->directory(IMAGE_DIRECTORY_ENTRY_EXPORT), 0);
    if (!table) return false;
    const std::size_t count = std::min<std::size_t>(table->NumberOfNames, mostExports);
    for (std::size_t i = 0; i < count; ++i) {
        const auto address = image->entryOf<DWORD>(table->AddressOfNames, i);
        if (address && image->textAt(*address) == name) return true;
    }
    return false;
}

// Either compiler may use the universal runtime or msvcrt.dll. So GCC's own runtimes come before Microsoft's, and msvcrt.dll
// tells nothing. GNU's linker calls itself version 2. Microsoft's first one for x64 was version 8.
Compiler compilerOf(ByteView file)
{
    constexpr BYTE gnuLinker = 2;
    const auto image = Image::of(file);
    if (!image) return Compiler::unknown;
    const auto imports = importsOf(file).value_or(std::vector<std::string>());
    if (std::ranges::any_of(imports, isGccRuntime)) return Compiler::gcc;
    if (std::ranges::any_of(imports, isMicrosoftRuntime)) return Compiler::visualCpp;
    return image->linkerVersion() == gnuLinker ? Compiler::gcc : Compiler::unknown;
}

} // namespace quelta
