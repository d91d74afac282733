#include "token/library_compiler.h"

#include "base/microsoft_runtime.h"
#include "log/log_writer.h"

#include <windows.h>

namespace quelta {

namespace {

template <class Type>
const Type& at(HMODULE image, DWORD offset)
{
    return *reinterpret_cast<const Type*>(reinterpret_cast<const unsigned char*>(image) + offset);
}

// Returns the name of the Microsoft runtime that the image imports, or null. The loader has already checked the headers.
const char* foreignRuntimeOf(HMODULE image)
{
    const auto& headers = at<IMAGE_NT_HEADERS>(image, static_cast<DWORD>(at<IMAGE_DOS_HEADER>(image, 0).e_lfanew));
    const DWORD directory = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    if (directory == 0) return nullptr;
    for (const auto* entry = &at<IMAGE_IMPORT_DESCRIPTOR>(image, directory); entry->Name != 0; ++entry) {
        const char* name = &at<char>(image, entry->Name);
        if (isMicrosoftRuntime(name)) return name;
    }
    return nullptr;
}

} // namespace

bool deviceLibraryIsForeign()
{
    const HMODULE library = GetModuleHandleA("QueltaDSCLibrary.dll");
    const char* runtime = library ? foreignRuntimeOf(library) : nullptr;
    if (!runtime) return false;
    logError("QueltaDSCLibrary.dll was built with another compiler than this QueltaCSP.dll (it imports ", runtime,
             "): install the QueltaCSP.dll that was built with Visual C++");
    return true;
}

} // namespace quelta
