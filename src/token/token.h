// A connected token as both providers use it. Its members call the device library: they fill in the token's identifier, convert
// lengths, and check returned lengths against the room. Buffers that the library allocates are checked by checkedBytes().
#pragma once

#include "base/bytes.h"
#include "token/device_buffer.h"
#include "token/device_library.h"
#include "token/token_state.h"

#include <cstdint>
#include <expected>
#include <string>

namespace quelta {

// The value, or the library's non-zero result, or `brokenAnswer`.
template <class T>
using DeviceResult = std::expected<T, int>;

// The library reported success, but without a buffer or with a length out of bounds. The log shows it as the result 0.
constexpr int brokenAnswer = 0;

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

    // Every int is the library's result, 0 for success.

    // Opens the token. Opening a provider passes false; a certificate look-up passes true. What the flag selects is not known.
    int initDevice(bool flag) const;
    // True if the token reports an open single sign-on session: then no PIN is needed.
    bool singleSignOnOpen() const;
    // `remaining` receives the number of attempts left if the PIN is refused; some refusals leave it unchanged.
    int validatePassword(const char* pin, int& remaining) const;

    std::vector<QueltaKeyPair> keyPairs() const;
    std::vector<QueltaCertificate> certificates() const;
    // The records may hold key values.
    Wiped<std::vector<QueltaSymmetricKey>> aesKeys() const;

    int generateKeyPair(const PinText& pin, QueltaKeyPair& inOut) const;
    int deleteKeyPair(ByteView keyId, const PinText& pin, bool hardware) const;
    int importCertificate(const PinText& pin, QueltaCertificate& inOut) const;
    int importAesKey(const PinText& pin, QueltaSymmetricKey& inOut) const;

    // The length of the signature in `signature`. The library is told the size of `signature` and must not exceed it.
    DeviceResult<std::size_t> signHash(ByteView keyId, const PinText& pin, ByteView hash,
                                       std::span<unsigned char> signature) const;
    // 0 when the signature is right.
    int verifySignatureHash(std::uint32_t algorithm, ByteView hash, ByteView publicKey, ByteView signature) const;
    // The library allocates the buffer. Its length is unchecked: see checkedBytes().
    DeviceResult<DeviceBuffer> decrypt(ByteView keyId, const PinText& pin, ByteView cipher, bool hardware) const;
    // The length of the ciphertext in `out`. The library is not told the size of `out`.
    DeviceResult<std::size_t> encrypt(EncryptionType type, PaddingMode padding, ByteView data,
                                      std::span<unsigned char, encryptionRoom> out, ByteView publicKey) const;
    // The length of the plaintext in `out`, which must be as long as `data`. The library is not told the size of `out`.
    DeviceResult<std::size_t> decryptSymmetric(ByteView data, std::span<unsigned char> out, ByteView iv, ByteView key) const;

    // Unwraps with the token's own AES key. The length of the buffer is unchecked.
    DeviceResult<DeviceBuffer> decryptAes(const QueltaSymmetricKey& key, ByteView wrapped) const;

    int initHash(int mechanism, void*& hash) const;
    int updateHash(void* hash, ByteView data) const;
    // The length of the digest. `preset` is the capacity that the library is told; it must not exceed the size of `digest`.
    DeviceResult<std::size_t> finalHash(void* hash, std::span<unsigned char, digestRoom> digest, std::size_t preset) const;
    // Fills `out`. `flag` is true while PP_USE_HARDWARE_RNG is off.
    int random(std::span<unsigned char> out, bool flag) const;

private:
    const char* deviceId_;
    void* libContext_;
};

// The bytes of a buffer of at most `most` bytes, or why there are none.
DeviceResult<ByteView> checkedBytes(const DeviceResult<DeviceBuffer>& buffer, std::size_t most);
// The view refers to the buffer.
DeviceResult<ByteView> checkedBytes(DeviceResult<DeviceBuffer>&& buffer, std::size_t most) = delete;

// The certificate's public key in the encoding of a key pair's, or the library's result.
DeviceResult<Bytes> publicKeyOfCertificate(ByteView der);

} // namespace quelta
