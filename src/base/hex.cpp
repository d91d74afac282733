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

std::optional<Bytes> fromHex(std::string_view text)
{
    if (text.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 2);
    for (; !text.empty(); text.remove_prefix(2)) {
        const auto high = hexDigit(text[0]);
        const auto low = hexDigit(text[1]);
        if (!high || !low) return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(*high << 4 | *low));
    }
    return bytes;
}

} // namespace quelta
