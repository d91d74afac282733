#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta::softtoken {

// AES, or triple DES under a key of 24 bytes; in CBC with an IV, in ECB with an empty one. Checks and removes the padding of
// PKCS#7, and throws TokenError if it is wrong.
Bytes paddedDecrypt(ByteView key, ByteView iv, ByteView data);

// RFC 3394 with the default initial value. Nothing if the key is another, since callers try one after the other, or the data was
// changed.
std::optional<Bytes> aesUnwrap(ByteView keyEncryptionKey, ByteView wrapped);

} // namespace quelta::softtoken
