#include "console.h"

#include "base/text.h"

#include <windows.h>

namespace quelta::tools {

namespace {

bool isConsole(HANDLE handle)
{
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

void write(DWORD which, std::string_view text)
{
    const HANDLE handle = GetStdHandle(which);
    DWORD written = 0;
    if (isConsole(handle)) {
        const std::wstring characters = toWide(text);
        WriteConsoleW(handle, characters.data(), static_cast<DWORD>(characters.size()), &written, nullptr);
    } else {
        WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
}

void writeLine(DWORD which, std::string_view line)
{
    std::string text(line);
    text += isConsole(GetStdHandle(which)) ? "\r\n" : "\n";
    write(which, text);
}

} // namespace

void printLine(std::string_view line)
{
    writeLine(STD_OUTPUT_HANDLE, line);
}

void complain(std::string_view line)
{
    writeLine(STD_ERROR_HANDLE, line);
}

bool errorsGoToConsole()
{
    return isConsole(GetStdHandle(STD_ERROR_HANDLE));
}

void writeToErrors(std::string_view text)
{
    write(STD_ERROR_HANDLE, text);
}

} // namespace quelta::tools
