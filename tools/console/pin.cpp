#include "tools/console/pin.h"

#include "tools/console/failure.h"

#include <windows.h>

namespace quelta::tools {

namespace {

constexpr std::size_t longest = 255;

// Reads byte by byte, since the bytes after the line belong to the command.
Wiped<std::string> firstLine(HANDLE input)
{
    Wiped<std::string> line;
    line->reserve(longest + 1);
    char byte = 0;
    for (DWORD got = 0; ReadFile(input, &byte, 1, &got, nullptr) && got && byte != '\n';) {
        line->push_back(byte);
        if (line->size() > longest) throw Failure("the first line of standard input is too long for a PIN");
    }
    if (line->ends_with('\r')) line->pop_back();
    return line;
}

// Converts without the functions of text.h, which leave copies behind.
Wiped<std::string> inCodePage(Wiped<std::string> pin)
{
    // For UTF-8 Windows can't say whether a character was lost.
    if (GetACP() == CP_UTF8) return pin;
    const auto length = static_cast<int>(pin->size());
    Wiped<std::wstring> wide(pin->size(), L'\0');
    const int count = MultiByteToWideChar(CP_UTF8, 0, pin->data(), length, wide->data(), length);
    // A character takes up to four bytes in a code page.
    Wiped<std::string> text(4 * pin->size(), '\0');
    BOOL lost = FALSE;
    text->resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide->data(), count, text->data(), 4 * length, nullptr, &lost)));
    if (lost) throw Failure("the PIN holds a character outside this system's code page; use another one");
    return text;
}

} // namespace

Wiped<std::string> readPin(const PinSource& source)
{
    auto pin = source.given ? Wiped<std::string>(*source.given) : firstLine(GetStdHandle(STD_INPUT_HANDLE));
    if (pin->empty()) throw Failure("the PIN is empty; give one, or let the dialog ask");
    return inCodePage(std::move(pin));
}

} // namespace quelta::tools
