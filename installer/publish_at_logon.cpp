// quelta-publish.exe, which the option Publishing starts at each logon. For a console program, as quelta.exe is, Windows would
// open a window.
#include "quiet_start.h"

#include <array>

int main()
{
    std::array<wchar_t, 1024> self{};
    const std::wstring path(self.data(), GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size())));
    const auto process =
        quelta::installer::startQuietly(path.substr(0, path.find_last_of(L'\\') + 1) + L"quelta.exe", L"publish --watch");
    return process ? 0 : static_cast<int>(GetLastError());
}
