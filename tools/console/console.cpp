#include "tools/console/console.h"

#include "base/text.h"
#include "base/windows_objects.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

namespace quelta::tools {

namespace {

// Never closed, since the last line is printed through it.
HANDLE keptOutput = nullptr;
bool outputHasContent = false;

HANDLE output()
{
    return keptOutput ? keptOutput : GetStdHandle(STD_OUTPUT_HANDLE);
}

HANDLE errors()
{
    return GetStdHandle(STD_ERROR_HANDLE);
}

bool isConsole(HANDLE handle)
{
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

std::size_t widthOf(HANDLE console)
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    return GetConsoleScreenBufferInfo(console, &info) && info.dwSize.X > 1 ? static_cast<std::size_t>(info.dwSize.X - 1) : 79;
}

bool writeBytes(HANDLE handle, ByteView bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return false;
        bytes = bytes.subspan(written);
    }
    return true;
}

bool write(HANDLE handle, const std::string& text)
{
    if (!isConsole(handle)) return writeBytes(handle, toBytes(text));
    const std::wstring characters = toWide(text);
    DWORD written = 0;
    return WriteConsoleW(handle, characters.data(), static_cast<DWORD>(characters.size()), &written, nullptr) != FALSE;
}

bool writeLine(HANDLE handle, std::string_view line)
{
    return write(handle, (isConsole(handle) ? wrapped(line, widthOf(handle)) : std::string(line)) + '\n');
}

// A runtime that was loaded earlier uses the old handle as its descriptor 1.
void redirectRuntime(const wchar_t* name)
{
    constexpr int standardOutput = 1;
    constexpr int standardError = 2;
    const HMODULE runtime = GetModuleHandleW(name);
    void* const address = runtime ? reinterpret_cast<void*>(GetProcAddress(runtime, "_dup2")) : nullptr;
    if (address) reinterpret_cast<int(__cdecl*)(int, int)>(address)(standardError, standardOutput);
}

} // namespace

void keepStandardOutput()
{
    keptOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    // Several runtimes share this handle, and each would close it.
    SetHandleInformation(keptOutput, HANDLE_FLAG_PROTECT_FROM_CLOSE, HANDLE_FLAG_PROTECT_FROM_CLOSE);
    // A runtime that is loaded later asks for the handle.
    SetStdHandle(STD_OUTPUT_HANDLE, errors());
    for (const wchar_t* name : {L"ucrtbase.dll", L"msvcrt.dll"}) redirectRuntime(name);
}

void printLine(std::string_view line)
{
    if (!tryPrintLine(line)) failWithLastError("can't write to standard output");
}

bool tryPrintLine(std::string_view line)
{
    return writeLine(outputHasContent ? errors() : output(), line);
}

void complain(std::string_view line)
{
    writeLine(errors(), line);
}

void useOutputForContent()
{
    outputHasContent = true;
}

bool writeToOutput(ByteView bytes)
{
    return writeBytes(output(), bytes);
}

bool isWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

} // namespace quelta::tools
