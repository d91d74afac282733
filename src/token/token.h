// A connected token as both providers use it: the calls of the device library with this token's identifier filled in, lengths
// converted, and what comes back checked against the room that was given.
#pragma once

#include "base/bytes.h"
#include "token/device_buffer.h"
#include "token/device_library.h"
#include "token/token_state.h"

#include <cstdint>
#include <expected>
#include <string>

namespace quelta {

// The value, or the library's non-zero result; 0 in its place where the library reported success with a length out of bounds or
// without a buffer.
template <class T>
using DeviceResult = std::expected<T, int>;

// The largest length that the library's signed int carries; anything longer is refused before it gets here.
constexpr std::uint32_t longestDeviceLength = 0x7FFFFFFF;

// Large enough for what any key of the token encrypts; the library is not told a capacity.
constexpr std::size_t encryptionRoom = 1024;

// What an import request holds of a key's value.
constexpr std::size_t importedKeyRoom = sizeof(QueltaSymmetricKey::keyValue);

// The digest of any algorithm fits.
constexpr std::size_t digestRoom = 128;

// Refers to the identifier that the provider's record holds; lives no longer than the call.
class Token {
public:
    Token(const std::string& deviceId, void* libContext) : deviceId_(deviceId.c_str()), libContext_(libContext) {}

    // The same token, for the calls that pass no context whatever the record holds.
    Token withoutContext() const { return {deviceId_, nullptr}; }

    int initDevice(bool flag) const;
    bool singleSignOnOpen() const;
    int validatePassword(const char* pin, int& remaining) const;

    std::vector<QueltaKeyPair> keyPairs() const;
    std::vector<QueltaCertificate> certificates() const;
    // They may come with their values.
    Wiped<std::vector<QueltaSymmetricKey>> aesKeys() const;

    int generateKeyPair(const PinText& pin, QueltaKeyPair& inOut) const;
    int deleteKeyPair(ByteView keyId, const PinText& pin, bool hardware) const;
    int importCertificate(const PinText& pin, QueltaCertificate& inOut) const;
    int importAesKey(const PinText& pin, QueltaSymmetricKey& inOut) const;

    DeviceResult<std::size_t> signHash(ByteView keyId, const PinText& pin, ByteView hash,
                                       std::span<unsigned char> signature) const;
    // 0 when the signature is right.
    int verifySignatureHash(std::uint32_t algorithm, ByteView hash, ByteView publicKey, ByteView signature) const;
    DeviceResult<DeviceBuffer> decrypt(ByteView keyId, const PinText& pin, ByteView cipher, bool hardware) const;
    // The same for callers with a rule of their own: the buffer as it was reported.
    std::expected<DeviceBuffer, int> decryptUnchecked(ByteView keyId, const PinText& pin, ByteView cipher, bool hardware) const;
    DeviceResult<std::size_t> encrypt(EncryptionType type, PaddingMode padding, ByteView data,
                                      std::span<unsigned char, encryptionRoom> out, ByteView publicKey) const;
    DeviceResult<std::size_t> decryptSymmetric(ByteView data, std::span<unsigned char> out, ByteView iv, ByteView key) const;

    // Unwraps with the token's own AES key; the buffer as it was reported.
    std::expected<DeviceBuffer, int> decryptAes(const QueltaSymmetricKey& key, ByteView wrapped) const;

    int initHash(int mechanism, void*& hash) const;
    int updateHash(void* hash, ByteView data) const;
    // `preset` is what the library is told as room; it must not exceed what `digest` holds.
    DeviceResult<std::size_t> finalHash(void* hash, std::span<unsigned char, digestRoom> digest, std::size_t preset) const;
    int random(std::span<unsigned char> out, bool flag) const;

private:
    Token(const char* deviceId, void* libContext) : deviceId_(deviceId), libContext_(libContext) {}

    const char* deviceId_;
    void* libContext_;
};

// The certificate's public key as the token gives a key pair's; nothing if the library can't read the certificate.
std::expected<Bytes, int> publicKeyOfCertificate(ByteView der);

} // namespace quelta
