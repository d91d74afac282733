// Interprets the token's codes for key usage, algorithm and key size.
#pragma once

#include "token/device_records.h"

#include <optional>

namespace quelta {

bool canSign(std::uint32_t usage);
bool canExchangeKeys(std::uint32_t usage);
bool isEllipticCurve(std::uint32_t algorithm);
// Returns the key size in bits; 0 for an unknown code.
std::uint32_t bitsOfAlgorithm(std::uint32_t algorithm);
// Returns the code of an RSA key of this size; nullopt if there is none.
std::optional<std::uint32_t> rsaAlgorithmOfBits(std::uint32_t bits);

// Returns the code that tells the library's encryption the key size. An unknown size gets the code of 2048.
EncryptionType encryptionTypeOfSize(std::size_t size);

} // namespace quelta
