// What the token's codes for usage, algorithm and size say.
#pragma once

#include "token/device_records.h"

#include <optional>

namespace quelta {

bool canSign(std::uint32_t usage);
bool canExchangeKeys(std::uint32_t usage);
bool isEllipticCurve(std::uint32_t algorithm);
// 0 for an unknown code.
std::uint32_t bitsOfAlgorithm(std::uint32_t algorithm);
// The code of an RSA key of this size, if there is one.
std::optional<std::uint32_t> rsaAlgorithmOfBits(std::uint32_t bits);

// How the library is told a key's size for encryption; the default for a size that it does not know.
EncryptionType encryptionTypeOfSize(std::size_t size);

} // namespace quelta
