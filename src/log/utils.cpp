#include "log/utils.h"

namespace quelta {

std::vector<std::string> Utils::split(std::string text, std::string_view delimiter)
{
    std::vector<std::string> pieces;
    while (!delimiter.empty()) {
        const auto found = text.find(delimiter);
        if (found == std::string::npos) break;
        pieces.push_back(text.substr(0, found));
        text.erase(0, found + delimiter.size());
    }
    pieces.push_back(std::move(text));
    return pieces;
}

std::string Utils::toHex(const unsigned char* bytes, int length)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    if (length < 1) return text;
    text.reserve(static_cast<std::size_t>(length) * 2);
    for (int i = 0; i < length; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

} // namespace quelta
