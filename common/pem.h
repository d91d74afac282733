// PEM (RFC 7468): blocks of base64 between lines that name the content.
#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta {

struct PemBlock {
    std::string label; // "CERTIFICATE"
    Bytes bytes;
};

// Returns all blocks of a text. Other text between them is ignored. Nullopt if a block has no end or is not base64.
std::optional<std::vector<PemBlock>> pemBlocks(std::string_view text);

// Returns a block with 64 characters in a line and bare line feeds.
std::string pemBlock(std::string_view label, ByteView bytes);

// Base64 without the lines of PEM, by crypt32. The reader accepts line ends anywhere; the writer makes none.
std::optional<Bytes> fromBase64(std::string_view text);
std::string toBase64(ByteView bytes);

} // namespace quelta
