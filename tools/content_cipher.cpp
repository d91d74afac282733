#include "content_cipher.h"

#include "bcrypt_call.h"
#include "der.h"
#include "failure.h"

#include <algorithm>
#include <iterator>

namespace quelta {

namespace {

constexpr ContentCipher table[] = {
    {"AES-256", "2.16.840.1.101.3.4.1.42", BCRYPT_AES_ALGORITHM, 32, 16},
    {"AES-192", "2.16.840.1.101.3.4.1.22", BCRYPT_AES_ALGORITHM, 24, 16},
    {"AES-128", "2.16.840.1.101.3.4.1.2", BCRYPT_AES_ALGORITHM, 16, 16},
    {"triple DES", "1.2.840.113549.3.7", BCRYPT_3DES_ALGORITHM, 24, 8},
};

Bytes lastBlock(ByteView blocks, std::size_t size)
{
    return {blocks.end() - static_cast<std::ptrdiff_t>(size), blocks.end()};
}

} // namespace

const ContentCipher& strongestCipher()
{
    return table[0];
}

const ContentCipher* cipherOfOid(ByteView encodedOid)
{
    const auto* row = std::ranges::find_if(
        table, [&](const ContentCipher& cipher) { return std::ranges::equal(encodedOid, der::oid(cipher.oid)); });
    return row == std::end(table) ? nullptr : row;
}

ContentKey::ContentKey(const ContentCipher& cipher, ByteView key, ByteView iv)
    : cipher_(&cipher), algorithm_(openAlgorithm(cipher.cngName)), iv_(iv.begin(), iv.end())
{
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(
        BCryptGenerateSymmetricKey(algorithm_.get(), &handle, nullptr, 0, bcryptInput(key), static_cast<ULONG>(key.size()), 0),
        "can't use the content key");
    key_.reset(handle);
}

// Both keep the chaining value themselves: whether bcrypt writes it back to the caller depends on the system.
Bytes ContentKey::encrypt(ByteView blocks)
{
    Bytes iv = iv_;
    Bytes output(blocks.size());
    ULONG size = 0;
    requireSuccess(BCryptEncrypt(key_.get(), bcryptInput(blocks), static_cast<ULONG>(blocks.size()), nullptr, iv.data(),
                                 static_cast<ULONG>(iv.size()), output.data(), static_cast<ULONG>(output.size()), &size, 0),
                   "can't encrypt the content");
    iv_ = lastBlock(output, cipher_->blockSize);
    return output;
}

Bytes ContentKey::decrypt(ByteView blocks)
{
    Bytes iv = iv_;
    Bytes output(blocks.size());
    ULONG size = 0;
    requireSuccess(BCryptDecrypt(key_.get(), bcryptInput(blocks), static_cast<ULONG>(blocks.size()), nullptr, iv.data(),
                                 static_cast<ULONG>(iv.size()), output.data(), static_cast<ULONG>(output.size()), &size, 0),
                   "can't decrypt the content");
    iv_ = lastBlock(blocks, cipher_->blockSize);
    return output;
}

} // namespace quelta
