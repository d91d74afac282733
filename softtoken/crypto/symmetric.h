#pragma once

#include "base/bytes.h"

#include <optional>

namespace quelta::softtoken {

enum class Cipher { aes, tripleDes };

// CBC with an IV of the block's size, ECB with an empty one. Whole blocks only; no padding is added or removed.
Bytes blockDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data);
// The same with the padding of PKCS#7 checked and removed. Throws TokenError if it is wrong.
Bytes paddedDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data);

// RFC 3394 with the default initial value. Nothing if the key is another, since callers try one after the other, or the data was
// changed.
std::optional<Bytes> aesUnwrap(ByteView keyEncryptionKey, ByteView wrapped);

} // namespace quelta::softtoken
