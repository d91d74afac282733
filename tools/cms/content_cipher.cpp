#include "tools/cms/content_cipher.h"

#include "base/der.h"
#include "tools/cms/bcrypt_call.h"

#include <algorithm>
#include <iterator>

namespace quelta::tools {

const KnownCipher* cipherOfOid(ByteView encodedOid)
{
    const auto* row = std::ranges::find_if(
        knownCiphers, [&](const KnownCipher& cipher) { return std::ranges::equal(encodedOid, der::oid(cipher.oid)); });
    return row == std::end(knownCiphers) ? nullptr : row;
}

ContentKey::ContentKey(const KnownCipher& cipher, ByteView key, ByteView iv)
    : cipher_(&cipher), algorithm_(openAlgorithm(cipher.systemName)), iv_(toBytes(iv))
{
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(
        BCryptGenerateSymmetricKey(algorithm_.get(), &handle, nullptr, 0, bcryptInput(key), static_cast<ULONG>(key.size()), 0),
        "can't use the content key");
    key_.reset(handle);
}

template <class Call>
Bytes ContentKey::pass(Call call, ByteView blocks, std::string_view what)
{
    Bytes iv = iv_;
    Bytes output(blocks.size());
    ULONG size = 0;
    requireSuccess(call(key_.get(), bcryptInput(blocks), static_cast<ULONG>(blocks.size()), nullptr, iv.data(),
                        static_cast<ULONG>(iv.size()), output.data(), static_cast<ULONG>(output.size()), &size, 0),
                   what);
    return output;
}

// Both keep the chaining value themselves: whether bcrypt writes it back to the caller depends on the system.
Bytes ContentKey::encrypt(ByteView blocks)
{
    Bytes output = pass(BCryptEncrypt, blocks, "can't encrypt the content");
    iv_ = toBytes(ByteView(output).last(cipher_->blockSize));
    return output;
}

Bytes ContentKey::decrypt(ByteView blocks)
{
    Bytes output = pass(BCryptDecrypt, blocks, "can't decrypt the content");
    iv_ = toBytes(blocks.last(cipher_->blockSize));
    return output;
}

} // namespace quelta::tools
