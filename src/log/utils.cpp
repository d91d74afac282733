#include "log/utils.h"

#include "base/hex.h"

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
    return length < 1 ? std::string() : quelta::toHex({bytes, static_cast<std::size_t>(length)});
}

} // namespace quelta
