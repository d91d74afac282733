#pragma once

#include "base/windows_objects.h"

#include <string>

namespace quelta::installer {

// Starts quelta.exe, a console program, without a window. Null if it does not start; GetLastError() says why.
inline File startQuietly(const std::wstring& tool, const std::wstring& arguments)
{
    std::wstring command = L'"' + tool + L"\" " + arguments;
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(tool.c_str(), command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &start,
                        &process))
        return nullptr;
    CloseHandle(process.hThread);
    return File(process.hProcess);
}

} // namespace quelta::installer
