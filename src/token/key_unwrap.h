// Symmetric keys that are wrapped under an AES key of the token.
#pragma once

#include "token/token.h"

#include <array>
#include <optional>

namespace quelta {

struct UnwrappedKey {
    // As the library returned it; the length is unchecked.
    DeviceBuffer key;
    std::array<unsigned char, keyIdSize> keyEncryptionKeyId;
};

// Tries the token's AES keys in the token's order. The first one with which the token decrypts wins; the bytes are not checked.
// Nullopt if there is none. Logs nothing.
std::optional<UnwrappedKey> UnwrapWithAnyKek(const Token& token, ByteView wrapped);

// Stores a symmetric key of at most `importedKeyRoom` bytes on the token. The record as the token filled it, with the key's value
// wiped, or the library's result.
DeviceResult<QueltaSymmetricKey> importSymmetricKey(const Token& token, const PinText& pin, ByteView value,
                                                    std::uint32_t encryptionType);

} // namespace quelta
