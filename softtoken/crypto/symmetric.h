#pragma once

#include "base/bytes.h"

namespace quelta::softtoken {

enum class Cipher { aes, tripleDes };

// CBC with an IV of the block's size, ECB with an empty one. Whole blocks only; no padding is added or removed.
Bytes blockDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data);
// The same with the padding of PKCS#7 checked and removed. Throws TokenError if it is wrong.
Bytes paddedDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data);

// RFC 3394 with the default initial value. Throws TokenError if the key is another or the data was changed.
Bytes aesUnwrap(ByteView keyEncryptionKey, ByteView wrapped);

} // namespace quelta::softtoken
