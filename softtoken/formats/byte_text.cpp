#include "formats/byte_text.h"

#include "store/token_error.h"

#include <windows.h>

namespace quelta::softtoken {

namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

unsigned char valueOf(char character)
{
    const char upper = character >= 'a' && character <= 'f' ? static_cast<char>(character - 'a' + 'A') : character;
    const std::size_t value = digits.find(upper);
    if (value == std::string_view::npos) throw TokenError(Result::badData, "not hexadecimal: use the digits 0 to 9 and A to F");
    return static_cast<unsigned char>(value);
}

} // namespace

std::wstring toWide(const std::string& text)
{
    const auto length = static_cast<int>(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring result(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), size);
    return result;
}

std::string toUtf8(const std::wstring& text)
{
    const auto length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

std::string toHex(ByteView bytes)
{
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

Bytes fromHex(std::string_view text)
{
    if (text.size() % 2 != 0) throw TokenError(Result::badData, "not hexadecimal: the number of digits is odd");
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(valueOf(text[i]) << 4 | valueOf(text[i + 1])));
    return bytes;
}

} // namespace quelta::softtoken
