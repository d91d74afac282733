#include "base/text.h"

#include <windows.h>

namespace quelta {

std::wstring toWide(std::string_view utf8)
{
    const auto length = static_cast<int>(utf8.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring text(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
    return text;
}

std::string toNarrow(std::wstring_view wide)
{
    std::string narrow;
    narrow.reserve(wide.size());
    for (const wchar_t unit : wide) narrow += static_cast<char>(unit & 0xFF);
    return narrow;
}

} // namespace quelta
