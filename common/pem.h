// PEM texts (RFC 7468): blocks of base64 between lines that name what they hold.
#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta {

struct PemBlock {
    std::string label; // "CERTIFICATE"
    Bytes bytes;
};

// All blocks of a text, whatever stands between them; empty if there is none. Nullopt if a block has no end or is not base64.
std::optional<std::vector<PemBlock>> pemBlocks(std::string_view text);

// With 64 characters in a line and bare line feeds.
std::string pemBlock(std::string_view label, ByteView bytes);

// Base64 alone, by the system. Line ends may stand anywhere in what is read; what is written has none.
std::optional<Bytes> fromBase64(std::string_view text);
std::string toBase64(ByteView bytes);

} // namespace quelta
