#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta::softtoken {

// Decrypts AES, or triple DES with a key of 24 bytes, in CBC mode, or in ECB mode if the IV is empty. Removes the PKCS#7 padding.
// Throws TokenError if the padding is wrong.
Bytes paddedDecrypt(ByteView key, ByteView iv, ByteView data);

// Unwraps a key (RFC 3394, default initial value). Returns nullopt for the wrong key or changed data. Callers try one key after
// the other, so that is no error.
std::optional<Bytes> aesUnwrap(ByteView keyEncryptionKey, ByteView wrapped);

} // namespace quelta::softtoken
