// Finds, among the token's AES keys, the one that a symmetric key was wrapped under, and stores the recovered key on the token.
// The token alone decides whether a key fits; the first that it accepts, in its own order, is taken.
#pragma once

#include "token/token.h"

#include <array>
#include <expected>
#include <functional>

namespace quelta {

enum class UnwrapFailure {
    noKeyFits,
    // A key fitted, but the token gave no buffer, a negative length or a length above the buffer's.
    noKeyRecovered,
    // A key fitted, but the token reported more bytes than an import request holds.
    keyTooLong,
    importRefused,
};

struct UnwrappedKey {
    // As the token stored it; the key's value is wiped.
    QueltaSymmetricKey stored;
    std::array<unsigned char, keyIdSize> keyEncryptionKeyId;
};

// `sizeCodeOf` gives the encryption-type code under which a recovered key of this length is imported. Logs only `unwrappedText`
// with the identifier of the key that fitted, before the import.
std::expected<UnwrappedKey, UnwrapFailure> UnwrapWithAnyKek(const Token& token, ByteView wrapped, const PinText& pin,
                                                            const std::function<std::uint32_t(std::size_t)>& sizeCodeOf,
                                                            const char* unwrappedText);

// Stores a symmetric key of at most `importedKeyRoom` bytes on the token; the library's result if it refuses. The value is wiped
// from the record that comes back.
std::expected<QueltaSymmetricKey, int> importSymmetricKey(const Token& token, const PinText& pin, ByteView value,
                                                          std::uint32_t encryptionType);

} // namespace quelta
