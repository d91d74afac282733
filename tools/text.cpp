#include "text.h"

#include "failure.h"

#include <windows.h>

namespace quelta {

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
        const std::wstring characters = wide(text);
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

std::string utf8(std::wstring_view text)
{
    const int length = static_cast<int>(text.size());
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
    return result;
}

std::wstring wide(std::string_view text)
{
    const int length = static_cast<int>(text.size());
    const int needed = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(needed), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), needed);
    return result;
}

std::string ansi(std::string_view text)
{
    const std::wstring characters = wide(text);
    const int length = static_cast<int>(characters.size());
    BOOL lost = FALSE;
    const int needed = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, characters.data(), length, nullptr, 0, nullptr, &lost);
    std::string result(static_cast<std::size_t>(needed), '\0');
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, characters.data(), length, result.data(), needed, nullptr, &lost);
    if (lost) throw Failure("a PIN or key name holds a character outside this system's code page; use another one");
    return result;
}

std::filesystem::path pathOf(std::string_view text)
{
    return wide(text);
}

std::string nameOf(const std::filesystem::path& path)
{
    return utf8(path.native());
}

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

} // namespace quelta
