#include "tools/console/console.h"

#include "base/text.h"
#include "base/windows_objects.h"

#include <io.h>

#include <cstdio>
#include <string>

namespace quelta::tools {

namespace {

// Lives as long as the process: what is said last is said on it.
HANDLE keptOutput = nullptr;

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

void write(HANDLE handle, std::string_view text)
{
    DWORD written = 0;
    if (isConsole(handle)) {
        const std::wstring characters = toWide(text);
        WriteConsoleW(handle, characters.data(), static_cast<DWORD>(characters.size()), &written, nullptr);
    } else {
        WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
}

void writeLine(HANDLE handle, std::string_view line)
{
    std::string text(line);
    text += isConsole(handle) ? "\r\n" : "\n";
    write(handle, text);
}

} // namespace

void keepStandardOutput()
{
    constexpr int standardOutput = 1;
    constexpr int standardError = 2;
    const HANDLE process = GetCurrentProcess();
    if (!DuplicateHandle(process, output(), process, &keptOutput, 0, FALSE, DUPLICATE_SAME_ACCESS)) return;
    // A provider of another C runtime finds the handle, one of the same runtime its stream.
    SetStdHandle(STD_OUTPUT_HANDLE, errors());
    std::fflush(stdout);
    _dup2(standardError, standardOutput);
}

void printLine(std::string_view line)
{
    writeLine(output(), line);
}

void complain(std::string_view line)
{
    writeLine(errors(), line);
}

void leaveOwnWindow()
{
    DWORD process = 0;
    // Wine takes the terminal that it was started in for such a window.
    if (!isWine() && GetConsoleProcessList(&process, 1) == 1) FreeConsole();
}

bool isWine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

bool writeToOutput(ByteView bytes)
{
    while (!bytes.empty()) {
        DWORD written = 0;
        if (!WriteFile(output(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return false;
        bytes = bytes.subspan(written);
    }
    return true;
}

bool errorsGoToConsole()
{
    return isConsole(errors());
}

void writeToErrors(std::string_view text)
{
    write(errors(), text);
}

} // namespace quelta::tools
