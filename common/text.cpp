#include "common/text.h"

#include <windows.h>

namespace quelta {

std::string toUtf8(std::wstring_view wide)
{
    const auto length = static_cast<int>(wide.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, text.data(), size, nullptr, nullptr);
    return text;
}

} // namespace quelta
