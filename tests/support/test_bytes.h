#pragma once

#include "base/bytes.h"
#include "base/hex.h"

#include <cstdint>

namespace quelta::test {

// Returns `count` bytes that count up from `first`.
Bytes counting(std::size_t count, unsigned char first = 1);
Bytes littleEndian(std::initializer_list<std::uint32_t> words);
// Includes the terminating zero.
Bytes bytesOfText(std::string_view text);
Bytes wideBytes(std::wstring_view text);
// Returns a key blob of CryptoAPI: the header of 8 bytes, then `rest`.
Bytes keyBlob(unsigned char type, std::uint32_t algorithm, const Bytes& rest);

} // namespace quelta::test
