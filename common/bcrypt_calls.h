// Digests, block ciphers and random numbers of bcrypt.dll. A refusal throws BcryptError.
#pragma once

#include "base/bytes.h"
#include "common/crypto_objects.h"
#include "common/known_algorithms.h"

#include <stdexcept>

namespace quelta {

// what() names the step that failed, without the status: "can't start a hash".
class BcryptError : public std::runtime_error {
public:
    BcryptError(const char* step, NTSTATUS status) : std::runtime_error(step), status_(status) {}
    NTSTATUS status() const { return status_; }

private:
    NTSTATUS status_;
};

// Throws BcryptError unless the status says success.
void requireSuccess(NTSTATUS status, const char* step);

// bcrypt's input pointers lack const; it does not write through them.
inline PUCHAR bcryptInput(ByteView bytes)
{
    return const_cast<PUCHAR>(bytes.data());
}
inline ULONG bcryptSize(ByteView bytes)
{
    return static_cast<ULONG>(bytes.size());
}

BcryptAlgorithm openAlgorithm(const wchar_t* name);

Bytes randomBytes(std::size_t count);

class Digest {
public:
    explicit Digest(const KnownDigest& kind);
    void update(ByteView bytes);
    // Must be called only once.
    Bytes finish();

private:
    const KnownDigest* kind_;
    BcryptAlgorithm algorithm_;
    BcryptHash hash_;
};

Bytes digestOf(const KnownDigest& kind, ByteView bytes);

// A block cipher in CBC mode, in pieces.
class BlockCipher {
public:
    // The IV is as long as a block.
    BlockCipher(const KnownCipher& cipher, ByteView key, ByteView iv);

    // Takes one or more whole blocks and continues the last call's chain. Adds and removes no padding.
    Bytes encrypt(ByteView blocks);
    Bytes decrypt(ByteView blocks);

    std::size_t blockSize() const { return cipher_->blockSize; }

private:
    template <class Call>
    Bytes pass(Call call, ByteView blocks, const char* step);

    const KnownCipher* cipher_;
    BcryptAlgorithm algorithm_;
    BcryptKey key_;
    Bytes iv_;
};

} // namespace quelta
