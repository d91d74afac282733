// The block ciphers that protect a message's content, in CBC mode and in pieces, by bcrypt.dll.
#pragma once

#include "base/bytes.h"
#include "windows_handles.h"

#include <string>

namespace quelta {

struct ContentCipher {
    const char* name;
    const char* oid;
    const wchar_t* cngName;
    std::size_t keySize;
    std::size_t blockSize;
};

const ContentCipher& strongestCipher();
// By the encoded object identifier; null if there is none.
const ContentCipher* cipherOfOid(ByteView encodedOid);

class ContentKey {
public:
    ContentKey(const ContentCipher& cipher, ByteView key, ByteView iv);

    // Whole blocks; each call goes on where the last one ended.
    Bytes encrypt(ByteView blocks);
    Bytes decrypt(ByteView blocks);

    std::size_t blockSize() const { return cipher_->blockSize; }

private:
    const ContentCipher* cipher_;
    AlgorithmHandle algorithm_;
    BcryptKey key_;
    Bytes iv_;
};

} // namespace quelta
