#include "common/bcrypt_calls.h"

namespace quelta {

void requireSuccess(NTSTATUS status, const char* step)
{
    if (status < 0) throw BcryptError(step, status);
}

BcryptAlgorithm openAlgorithm(const wchar_t* name)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    requireSuccess(BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0), "this Windows lacks an algorithm that is needed");
    return BcryptAlgorithm(algorithm);
}

Bytes randomBytes(std::size_t count)
{
    Bytes bytes(count);
    requireSuccess(BCryptGenRandom(nullptr, bytes.data(), bcryptSize(bytes), BCRYPT_USE_SYSTEM_PREFERRED_RNG),
                   "no random numbers from the system");
    return bytes;
}

Digest::Digest(const KnownDigest& kind) : kind_(&kind), algorithm_(openAlgorithm(kind.systemName))
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    requireSuccess(BCryptCreateHash(algorithm_.get(), &hash, nullptr, 0, nullptr, 0, 0), "can't start a hash");
    hash_.reset(hash);
}

void Digest::update(ByteView bytes)
{
    requireSuccess(BCryptHashData(hash_.get(), bcryptInput(bytes), bcryptSize(bytes), 0), "can't hash");
}

Bytes Digest::finish()
{
    Bytes value(kind_->size);
    requireSuccess(BCryptFinishHash(hash_.get(), value.data(), bcryptSize(value), 0), "can't finish a hash");
    return value;
}

Bytes digestOf(const KnownDigest& kind, ByteView bytes)
{
    Digest digest(kind);
    digest.update(bytes);
    return digest.finish();
}

BlockCipher::BlockCipher(const KnownCipher& cipher, ByteView key, ByteView iv)
    : cipher_(&cipher), algorithm_(openAlgorithm(cipher.systemName)), iv_(toBytes(iv))
{
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(BCryptGenerateSymmetricKey(algorithm_.get(), &handle, nullptr, 0, bcryptInput(key), bcryptSize(key), 0),
                   "can't use the content key");
    key_.reset(handle);
}

template <class Call>
Bytes BlockCipher::pass(Call call, ByteView blocks, const char* step)
{
    Bytes iv = iv_;
    Bytes output(blocks.size());
    ULONG size = 0;
    requireSuccess(call(key_.get(), bcryptInput(blocks), bcryptSize(blocks), nullptr, iv.data(), bcryptSize(iv), output.data(),
                        bcryptSize(output), &size, 0),
                   step);
    return output;
}

// Encryption and decryption keep the chaining value themselves. Whether bcrypt writes it back depends on the system.
Bytes BlockCipher::encrypt(ByteView blocks)
{
    Bytes output = pass(BCryptEncrypt, blocks, "can't encrypt the content");
    iv_ = toBytes(ByteView(output).last(cipher_->blockSize));
    return output;
}

Bytes BlockCipher::decrypt(ByteView blocks)
{
    Bytes output = pass(BCryptDecrypt, blocks, "can't decrypt the content");
    iv_ = toBytes(blocks.last(cipher_->blockSize));
    return output;
}

} // namespace quelta
