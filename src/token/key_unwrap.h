// Unwraps symmetric keys with an AES key of the token, and stores symmetric keys on the token.
#pragma once

#include "token/token.h"

#include <array>
#include <optional>

namespace quelta {

struct UnwrappedKey {
    // The buffer that the library returned. Its length is unchecked.
    DeviceBuffer key;
    std::array<unsigned char, keyIdSize> keyEncryptionKeyId;
};

// Tries the token's AES keys in the token's order and returns the first result that decrypts. The bytes are not checked. Returns
// nullopt if no key decrypts. Logs nothing.
std::optional<UnwrappedKey> UnwrapWithAnyKek(const Token& token, ByteView wrapped);

// Stores a symmetric key of at most `importedKeyRoom` bytes on the token. Returns the record that the token filled in, with its
// key value wiped, or the library's result.
DeviceResult<QueltaSymmetricKey> importSymmetricKey(const Token& token, const PinText& pin, ByteView value,
                                                    std::uint32_t encryptionType);

} // namespace quelta
