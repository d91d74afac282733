#include "crypto/symmetric.h"

#include "base/token_error.h"
#include "common/bcrypt_calls.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr std::size_t wrapBlock = 8;
constexpr unsigned char wrapInitialValue[wrapBlock] = {0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6};

const KnownCipher& cipherFor(bool aes, std::size_t keySize)
{
    for (const KnownCipher& cipher : knownCiphers)
        if (cipher.keySize == keySize && (cipher.blockSize == 16) == aes) return cipher;
    throw TokenError(Result::badArgument, "a symmetric key of " + std::to_string(keySize) + " bytes can't be used");
}

// Decrypts in CBC mode with an IV, in ECB mode without one.
Bytes decryptBlocks(const KnownCipher& cipher, ByteView key, ByteView iv, ByteView data)
{
    const std::size_t block = cipher.blockSize;
    if (data.empty() || data.size() % block != 0) throw TokenError(Result::badArgument, "the data is not whole blocks");
    if (!iv.empty() && iv.size() != block) throw TokenError(Result::badArgument, "the IV is not as long as a block");
    const Bytes zeros(block);
    Bytes plain = BlockCipher(cipher, key, iv.empty() ? zeros : iv).decrypt(data);
    if (!iv.empty()) return plain;
    // Wine's bcrypt has no ECB for triple DES. CBC is undone: each block is combined with the cipher block before it.
    for (std::size_t i = block; i < plain.size(); ++i) plain[i] = static_cast<unsigned char>(plain[i] ^ data[i - block]);
    return plain;
}

} // namespace

Bytes paddedDecrypt(ByteView key, ByteView iv, ByteView data)
{
    const KnownCipher& cipher = cipherFor(key.size() != 24, key.size());
    Bytes plain = decryptBlocks(cipher, key, iv, data);
    const std::size_t padding = plain.back();
    if (padding == 0 || padding > cipher.blockSize ||
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
        const Bytes input = concat({check, {part, wrapBlock}});
        // Each block needs a new key object. Given an IV again, Wine's bcrypt continues the last call's chaining.
        const Bytes output = decryptBlocks(cipherFor(true, keyEncryptionKey.size()), keyEncryptionKey, {}, input);
        const auto middle = output.begin() + static_cast<std::ptrdiff_t>(wrapBlock);
        std::copy(output.begin(), middle, check.begin());
        std::copy(middle, output.end(), part);
    }
    return sameBytes(check, wrapInitialValue) ? std::optional(plain) : std::nullopt;
}

} // namespace quelta::softtoken
