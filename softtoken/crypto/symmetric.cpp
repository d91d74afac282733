#include "crypto/symmetric.h"

#include "crypto/bcrypt_objects.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr std::size_t wrapBlock = 8;
constexpr unsigned char wrapInitialValue[wrapBlock] = {0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6};

std::size_t blockSize(Cipher cipher)
{
    return cipher == Cipher::aes ? 16 : 8;
}

void requireKeySize(Cipher cipher, std::size_t size)
{
    const bool good = cipher == Cipher::aes ? size == 16 || size == 24 || size == 32 : size == 24;
    if (!good) throw TokenError(Result::badArgument, "a symmetric key of " + std::to_string(size) + " bytes can't be used");
}

// In CBC, which is what bcrypt.dll begins with.
BcryptKey symmetricKey(Cipher cipher, ByteView key)
{
    requireKeySize(cipher, key.size());
    const wchar_t* name = cipher == Cipher::aes ? BCRYPT_AES_ALGORITHM : BCRYPT_3DES_ALGORITHM;
    BCRYPT_KEY_HANDLE handle = nullptr;
    requireSuccess(BCryptGenerateSymmetricKey(provider(name), &handle, nullptr, 0, dataOf(key), lengthOf(key), 0),
                   "a symmetric key");
    return BcryptKey(handle);
}

Bytes decryptChained(const BcryptKey& key, Bytes iv, ByteView data)
{
    Bytes plain(data.size());
    ULONG size = 0;
    requireSuccess(BCryptDecrypt(key.get(), dataOf(data), lengthOf(data), nullptr, iv.data(), lengthOf(iv), plain.data(),
                                 lengthOf(plain), &size, 0),
                   "decrypting");
    plain.resize(size);
    return plain;
}

// Wine's bcrypt has no ECB for triple DES: take the chaining back out, each block with the cipher text before it.
Bytes decryptUnchained(const BcryptKey& key, std::size_t block, ByteView data)
{
    Bytes plain = decryptChained(key, Bytes(block), data);
    for (std::size_t i = block; i < plain.size(); ++i) plain[i] = static_cast<unsigned char>(plain[i] ^ data[i - block]);
    return plain;
}

} // namespace

Bytes blockDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data)
{
    const std::size_t block = blockSize(cipher);
    if (data.empty() || data.size() % block != 0) throw TokenError(Result::badArgument, "the data is not whole blocks");
    if (!iv.empty() && iv.size() != block) throw TokenError(Result::badArgument, "the IV is not as long as a block");
    const BcryptKey handle = symmetricKey(cipher, key);
    return iv.empty() ? decryptUnchained(handle, block, data) : decryptChained(handle, toBytes(iv), data);
}

Bytes paddedDecrypt(Cipher cipher, ByteView key, ByteView iv, ByteView data)
{
    Bytes plain = blockDecrypt(cipher, key, iv, data);
    const std::size_t padding = plain.back();
    if (padding == 0 || padding > blockSize(cipher) ||
        !std::all_of(plain.end() - static_cast<std::ptrdiff_t>(padding), plain.end(),
                     [&](unsigned char byte) { return byte == padding; }))
        throw TokenError(Result::badData, "the padding is wrong: another key, IV or mode was used");
    plain.resize(plain.size() - padding);
    return plain;
}

std::optional<Bytes> aesUnwrap(ByteView keyEncryptionKey, ByteView wrapped)
{
    if (wrapped.size() < 3 * wrapBlock || wrapped.size() % wrapBlock != 0)
        throw TokenError(Result::badArgument, "wrapped keys have whole blocks of 8 bytes, at least three");
    const std::size_t blocks = wrapped.size() / wrapBlock - 1;
    Bytes check = toBytes(wrapped.first(wrapBlock));
    Bytes plain = toBytes(wrapped.subspan(wrapBlock));
    for (std::size_t step = 6 * blocks; step > 0; --step) {
        const auto part = plain.begin() + static_cast<std::ptrdiff_t>((step - 1) % blocks * wrapBlock);
        std::size_t counter = step;
        for (std::size_t i = wrapBlock; i-- > 0; counter >>= 8)
            check[i] = static_cast<unsigned char>(check[i] ^ (counter & 0xFF));
        Bytes input = check;
        input.insert(input.end(), part, part + static_cast<std::ptrdiff_t>(wrapBlock));
        // A fresh key for each block: with an IV that it has seen, Wine's bcrypt goes on with the last call's chaining.
        const Bytes output = blockDecrypt(Cipher::aes, keyEncryptionKey, {}, input);
        const auto middle = output.begin() + static_cast<std::ptrdiff_t>(wrapBlock);
        std::copy(output.begin(), middle, check.begin());
        std::copy(middle, output.end(), part);
    }
    return equalInConstantTime(check, wrapInitialValue) ? std::optional(plain) : std::nullopt;
}

} // namespace quelta::softtoken
