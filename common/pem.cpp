#include "common/pem.h"

namespace quelta {

namespace {

constexpr std::string_view beginMark = "-----BEGIN ";
constexpr std::string_view endMark = "-----END ";
constexpr std::string_view dashes = "-----";
constexpr std::size_t lineLength = 64;

} // namespace

std::optional<std::vector<PemBlock>> pemBlocks(std::string_view text)
{
    std::vector<PemBlock> blocks;
    for (auto begin = text.find(beginMark); begin != std::string_view::npos; begin = text.find(beginMark)) {
        text.remove_prefix(begin + beginMark.size());
        const auto label = text.substr(0, text.find(dashes));
        const auto end = text.find(endMark);
        if (end == std::string_view::npos || label.size() + dashes.size() > end) return std::nullopt;
        const auto body = text.substr(label.size() + dashes.size(), end - label.size() - dashes.size());
        auto bytes = fromBase64(body);
        if (!bytes) return std::nullopt;
        blocks.push_back({std::string(label), *std::move(bytes)});
        text.remove_prefix(end);
    }
    return blocks;
}

std::string pemBlock(std::string_view label, ByteView bytes)
{
    const std::string line = std::string(label) + "-----\n";
    std::string text = std::string(beginMark) + line;
    const std::string base64 = toBase64(bytes);
    for (std::size_t i = 0; i < base64.size(); i += lineLength) text += base64.substr(i, lineLength) + "\n";
    return text + std::string(endMark) + line;
}

} // namespace quelta
