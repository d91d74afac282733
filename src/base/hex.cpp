#include "base/hex.h"

namespace quelta {

std::string toHex(ByteView bytes)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

std::optional<unsigned char> hexDigit(char character)
{
    if (character >= '0' && character <= '9') return static_cast<unsigned char>(character - '0');
    if (character >= 'a' && character <= 'f') return static_cast<unsigned char>(character - 'a' + 10);
    if (character >= 'A' && character <= 'F') return static_cast<unsigned char>(character - 'A' + 10);
    return std::nullopt;
}

} // namespace quelta
