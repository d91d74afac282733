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

// The value; or the library's non-zero result; or `brokenAnswer`.
template <class T>
using DeviceResult = std::expected<T, int>;

// The library reported success, but without a buffer or with a length out of bounds. The log shows it as the result 0.
constexpr int brokenAnswer = 0;

// The largest length that the library's signed int can hold. Callers refuse anything longer.
constexpr std::uint32_t longestDeviceLength = 0x7FFFFFFF;

// Large enough for the ciphertext of any key of the token. The library is not told a capacity.
constexpr std::size_t encryptionRoom = 1024;

// The size of the key value in an import request.
constexpr std::size_t importedKeyRoom = sizeof(QueltaSymmetricKey::keyValue);

// Large enough for the digest of any algorithm.
constexpr std::size_t digestRoom = 128;

// Refers to the identifier in the provider's record, so a Token must not outlive that record.
class Token {
public:
    Token(const std::string& deviceId, void* libContext) : deviceId_(deviceId.c_str()), libContext_(libContext) {}

    // Every int result is the library's, 0 for success.

    // Opens the token. The flag is false when a provider is opened and true before a certificate look-up.
    int initDevice(bool flag) const;
    // True if the token reports an open single sign-on session. Then no PIN is needed.
    bool singleSignOnOpen() const;
    // `remaining` receives the number of attempts left if the PIN is refused; some refusals leave it unchanged.
    int validatePassword(const char* pin, int& remaining) const;

    std::vector<QueltaKeyPair> keyPairs() const;
    std::vector<QueltaCertificate> certificates() const;
    // Wiped, because the records may hold key values.
    Wiped<std::vector<QueltaSymmetricKey>> aesKeys() const;

    int generateKeyPair(const PinText& pin, QueltaKeyPair& inOut) const;
    int deleteKeyPair(ByteView keyId, const PinText& pin, bool hardware) const;
    int importCertificate(const PinText& pin, QueltaCertificate& inOut) const;
    int importAesKey(const PinText& pin, QueltaSymmetricKey& inOut) const;

    // Returns the length of the signature. The library is told the size of `signature` and must not exceed it.
    DeviceResult<std::size_t> signHash(ByteView keyId, const PinText& pin, ByteView hash,
                                       std::span<unsigned char> signature) const;
    // Returns 0 if the signature is right.
    int verifySignatureHash(std::uint32_t algorithm, ByteView hash, ByteView publicKey, ByteView signature) const;
    // Returns a buffer that the library allocated. Its length is unchecked: see checkedBytes().
    DeviceResult<DeviceBuffer> decrypt(ByteView keyId, const PinText& pin, ByteView cipher, bool hardware) const;
    // Returns the length of the ciphertext in `out`. The library is not told the size of `out`.
    DeviceResult<std::size_t> encrypt(EncryptionType type, PaddingMode padding, ByteView data,
                                      std::span<unsigned char, encryptionRoom> out, ByteView publicKey) const;
    // Returns the length of the plaintext in `out`, which must be as long as `data`. The library is not told the size of `out`.
    DeviceResult<std::size_t> decryptSymmetric(ByteView data, std::span<unsigned char> out, ByteView iv, ByteView key) const;

    // Unwraps with an AES key of the token. The length of the returned buffer is unchecked.
    DeviceResult<DeviceBuffer> decryptAes(const QueltaSymmetricKey& key, ByteView wrapped) const;

    int initHash(int mechanism, void*& hash) const;
    int updateHash(void* hash, ByteView data) const;
    // Returns the length of the digest. The library is told `preset` as capacity; `preset` must not exceed the size of `digest`.
    DeviceResult<std::size_t> finalHash(void* hash, std::span<unsigned char, digestRoom> digest, std::size_t preset) const;
    // Fills `out`. `flag` is true while PP_USE_HARDWARE_RNG is off.
    int random(std::span<unsigned char> out, bool flag) const;

private:
    const char* deviceId_;
    void* libContext_;
};

// Returns the buffer's bytes; the library's result if its call failed; `brokenAnswer` if the length is invalid or above `most`.
DeviceResult<ByteView> checkedBytes(const DeviceResult<DeviceBuffer>& buffer, std::size_t most);
// A temporary buffer would leave the view dangling.
DeviceResult<ByteView> checkedBytes(DeviceResult<DeviceBuffer>&& buffer, std::size_t most) = delete;

// Returns the certificate's public key in the encoding that key pairs have, or the library's result.
DeviceResult<Bytes> publicKeyOfCertificate(ByteView der);

} // namespace quelta
