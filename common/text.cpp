#include "common/text.h"

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

} // namespace quelta
