#include "base/text.h"

#include <windows.h>

namespace quelta {

namespace {

std::string toCodePage(std::wstring_view wide, UINT codePage, DWORD flags, BOOL* lost)
{
    const auto length = static_cast<int>(wide.size());
    const int size = WideCharToMultiByte(codePage, flags, wide.data(), length, nullptr, 0, nullptr, lost);
    std::string text(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(codePage, flags, wide.data(), length, text.data(), size, nullptr, lost);
    return text;
}

} // namespace

std::wstring toWide(std::string_view utf8)
{
    const auto length = static_cast<int>(utf8.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring text(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
    return text;
}

std::string toUtf8(std::wstring_view wide)
{
    return toCodePage(wide, CP_UTF8, 0, nullptr);
}

std::optional<std::string> toCodePage(std::wstring_view wide)
{
    BOOL lost = FALSE;
    std::string text = toCodePage(wide, CP_ACP, WC_NO_BEST_FIT_CHARS, &lost);
    if (lost) return std::nullopt;
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
