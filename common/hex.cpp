#include "common/hex.h"

namespace quelta {

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
