// The block ciphers that protect a message's content, in CBC mode and in pieces, by bcrypt.dll.
#pragma once

#include "base/bytes.h"
#include "common/crypto_objects.h"
#include "common/known_algorithms.h"

namespace quelta::tools {

// By the encoded object identifier; null if there is none.
const KnownCipher* cipherOfOid(ByteView encodedOid);

class ContentKey {
public:
    ContentKey(const KnownCipher& cipher, ByteView key, ByteView iv);

    // Whole blocks; each call goes on where the last one ended.
    Bytes encrypt(ByteView blocks);
    Bytes decrypt(ByteView blocks);

    std::size_t blockSize() const { return cipher_->blockSize; }

private:
    template <class Call>
    Bytes pass(Call call, ByteView blocks, std::string_view what);

    const KnownCipher* cipher_;
    BcryptAlgorithm algorithm_;
    BcryptKey key_;
    Bytes iv_;
};

} // namespace quelta::tools
