#include "base/wipe.h"
#include "common/bcrypt_calls.h"
#include "crypto/key_encoding.h"
#include "crypto/rsa.h"
#include "crypto/symmetric.h"
#include "device/guard.h"
#include "store/pin.h"
#include "token/device_functions.h"

#include <algorithm>
#include <cstdlib>

namespace quelta::softtoken {

namespace {

constexpr std::size_t encryptRoom = 1024;

struct FreeBlock {
    void operator()(unsigned char* block) const { std::free(block); }
};

// Copies the bytes into a block that the caller releases with the C runtime's free. Without bytes nothing is allocated.
Result giveBlock(std::optional<Bytes> bytes, unsigned char** block, int* length)
{
    if (!bytes) return Result::badData;
    const Wiped<Bytes> clear(*std::move(bytes));
    std::unique_ptr<unsigned char, FreeBlock> made(
        static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(clear->size(), 1))));
    if (!made) throw std::bad_alloc();
    std::ranges::copy(*clear, made.get());
    *length = static_cast<int>(clear->size());
    *block = made.release();
    return Result::ok;
}

// `length` holds the capacity on entry and the length on return. A buffer that is too small is not written.
Result giveInto(ByteView bytes, unsigned char* room, int* length)
{
    const bool fits = room != nullptr && *length >= 0 && static_cast<std::size_t>(*length) >= bytes.size();
    *length = static_cast<int>(bytes.size());
    if (!fits) return Result::bufferTooSmall;
    std::ranges::copy(bytes, room);
    return Result::ok;
}

struct PrivateUse {
    int result;
    const StoredKeyPair* pair;
};

PrivateUse privateUse(const StoredToken& state, const unsigned char* keyId, const char* pin, std::uint32_t usage)
{
    if (const int refused = mayUse(state, Use::privateKey, pin); refused != 0) return {refused, nullptr};
    if (keyId == nullptr) return {static_cast<int>(Result::badArgument), nullptr};
    const StoredKeyPair* pair = findKeyPair(state, ByteView(keyId, keyIdSize));
    if (pair == nullptr) return {static_cast<int>(Result::noSuchKey), nullptr};
    if ((pair->usage & usage) == 0) return {static_cast<int>(Result::usageRefused), nullptr};
    return {0, pair};
}

// Returns the signature's size before the signature is made. A caller with a small buffer costs no signature.
std::size_t signatureSize(const StoredKeyPair& pair)
{
    const KeyAlgorithm* algorithm = keyAlgorithm(pair.algorithm);
    if (algorithm == nullptr) throw TokenError("a key of an unknown kind");
    const std::size_t bytes = (algorithm->bits + 7) / 8;
    return algorithm->rsa ? bytes : 2 * bytes;
}

const StoredAesKey& wrappingKey(const StoredToken& state, ByteView reference)
{
    for (const StoredAesKey& key : state.aesKeys) {
        const bool aes = key.encryptionType == encryptionAes128 || key.encryptionType == encryptionAes256;
        if (aes && std::ranges::equal(key.reference, reference)) return key;
    }
    throw TokenError(Result::noSuchKey, "no AES key with this reference");
}

} // namespace

} // namespace quelta::softtoken

using namespace quelta;
using namespace quelta::softtoken;

int quelta_signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                    unsigned char* signature, int* signatureLength, bool flag, void*)
{
    return withToken(deviceId, [&](const StoredToken& state) {
        const auto [refused, pair] = privateUse(state, keyId, pin, usageSigning);
        if (refused != 0) return refused;
        const ByteView digest = viewOf(hash, hashLength);
        if (digest.empty() || signatureLength == nullptr || flag) return static_cast<int>(Result::badArgument);
        const std::size_t size = signatureSize(*pair);
        if (signature == nullptr || *signatureLength < 0 || static_cast<std::size_t>(*signatureLength) < size) {
            *signatureLength = static_cast<int>(size);
            return static_cast<int>(Result::bufferTooSmall);
        }
        return static_cast<int>(giveInto(signDigest(decodePrivateKey(pair->privateKey), digest), signature, signatureLength));
    });
}

int quelta_verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                               const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                               int signatureLength, void*)
{
    return withToken(deviceId, [&](const StoredToken&) {
        const PublicKey key = decodePublicKey(viewOf(publicKey, publicKeyLength));
        const ByteView digest = viewOf(hash, hashLength);
        if (digest.empty() || keyAlgorithm(algorithm) == nullptr) return Result::badArgument;
        return verifyDigest(key, digest, viewOf(signature, signatureLength)) ? Result::ok : Result::badData;
    });
}

int quelta_decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher,
                   int cipherLength, unsigned char** plain, int* plainLength, bool hardware, void*)
{
    return withToken(deviceId, [&](const StoredToken& state) {
        const auto [refused, pair] = privateUse(state, keyId, pin, usageKeyExchange);
        if (refused != 0) return refused;
        if (plain == nullptr || plainLength == nullptr || !hardware) return static_cast<int>(Result::badArgument);
        const PrivateKey key = decodePrivateKey(pair->privateKey);
        const RsaPrivate* rsa = std::get_if<RsaPrivate>(&key);
        if (rsa == nullptr) return static_cast<int>(Result::usageRefused);
        return static_cast<int>(giveBlock(rsaDecrypt(*rsa, viewOf(cipher, cipherLength)), plain, plainLength));
    });
}

int quelta_encrypt(EncryptionType, PaddingMode padding, const unsigned char* data, int length, unsigned char* out, int* outLength,
                   const unsigned char* publicKey, int publicKeyLength, void*)
{
    return withToken([&](const StoredToken&) {
        if (out == nullptr || outLength == nullptr) return Result::badArgument;
        if (padding != paddingPkcs1 && padding != paddingOaep) return Result::badArgument;
        const PublicKey key = decodePublicKey(viewOf(publicKey, publicKeyLength));
        const RsaPublic* rsa = std::get_if<RsaPublic>(&key);
        if (rsa == nullptr) return Result::usageRefused;
        const Bytes cipher =
            rsaEncrypt(*rsa, padding == paddingOaep ? RsaPadding::oaepSha1 : RsaPadding::pkcs1, viewOf(data, length));
        if (cipher.size() > encryptRoom) return Result::bufferTooSmall;
        std::ranges::copy(cipher, out);
        *outLength = static_cast<int>(cipher.size());
        return Result::ok;
    });
}

int quelta_decrypt_aes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                       int length, unsigned char** plain, int* plainLength, bool, const unsigned char* iv, int ivLength, void*)
{
    return withToken(deviceId, [&](const StoredToken& state) {
        if (plain == nullptr || plainLength == nullptr || !viewOf(iv, ivLength).empty()) return Result::badArgument;
        const StoredAesKey& key = wrappingKey(state, viewOf(keyReference, keyReferenceLength));
        return giveBlock(aesUnwrap(key.value, viewOf(data, length)), plain, plainLength);
    });
}

int quelta_decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                           const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void*)
{
    return withToken(deviceId, [&](const StoredToken&) {
        if (out == nullptr || outLength == nullptr) return Result::badArgument;
        const Bytes plain = paddedDecrypt(viewOf(key, keyLength), viewOf(iv, ivLength), viewOf(data, length));
        std::ranges::copy(plain, out);
        *outLength = static_cast<int>(plain.size());
        return Result::ok;
    });
}

int quelta_generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool, void*)
{
    return withToken(deviceId, [&](const StoredToken&) {
        const ByteView room = viewOf(out, length);
        std::ranges::copy(randomBytes(room.size()), out);
        return Result::ok;
    });
}
