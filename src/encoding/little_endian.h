#pragma once

#include "base/bytes.h"

#include <cstdint>

namespace quelta {

constexpr std::uint32_t rsaPublicMagic = 0x31415352; // "RSA1"
constexpr std::uint32_t defaultPublicExponent = 65537;

// Reads the 32-bit number at `offset`. All four bytes must lie within `bytes`.
inline std::uint32_t readU32(ByteView bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i > 0; --i) value = value << 8 | bytes[offset + i - 1];
    return value;
}

inline void appendU32(Bytes& bytes, std::uint32_t value)
{
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<unsigned char>(value >> shift & 0xFF));
}

} // namespace quelta
