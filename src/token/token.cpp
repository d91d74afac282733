#include "token/token.h"

#include "token/record_fields.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace quelta {

namespace {

int lengthOf(std::size_t size)
{
    if (size > longestDeviceLength) throw std::length_error("too long for the device library");
    return static_cast<int>(size);
}

DeviceResult<std::size_t> checkedLength(int result, int length, std::size_t room)
{
    if (result != 0) return std::unexpected(result);
    if (length < 0 || static_cast<std::size_t>(length) > room) return std::unexpected(brokenAnswer);
    return static_cast<std::size_t>(length);
}

} // namespace

int Token::initDevice(bool flag) const
{
    return deviceLibrary().initDevice(deviceId_, flag, libContext_);
}

bool Token::singleSignOnOpen() const
{
    const TokenInfo info = deviceLibrary().getTokenInfo(deviceId_, libContext_);
    return !info.serialNumber.empty() && info.singleSignOnEnabled == 1 && info.singleSignOnOpen == 1;
}

int Token::validatePassword(const char* pin, int& remaining) const
{
    constexpr int userPin = 1;
    return deviceLibrary().validatePassword(deviceId_, pin, userPin, &remaining, libContext_);
}

std::vector<QueltaKeyPair> Token::keyPairs() const
{
    return deviceLibrary().getKeyPairList(deviceId_, libContext_);
}

std::vector<QueltaCertificate> Token::certificates() const
{
    return deviceLibrary().getCertificateList(deviceId_, libContext_);
}

Wiped<std::vector<QueltaSymmetricKey>> Token::aesKeys() const
{
    return Wiped<std::vector<QueltaSymmetricKey>>(deviceLibrary().getAesKeyList(deviceId_, libContext_));
}

int Token::generateKeyPair(const PinText& pin, QueltaKeyPair& inOut) const
{
    return deviceLibrary().generateKeyPair(deviceId_, pin->c_str(), &inOut, libContext_);
}

int Token::deleteKeyPair(ByteView keyId, const PinText& pin, bool hardware) const
{
    return deviceLibrary().deleteKeyPair(deviceId_, keyId.data(), pin->c_str(), hardware, libContext_);
}

int Token::importCertificate(const PinText& pin, QueltaCertificate& inOut) const
{
    return deviceLibrary().importCertificate(deviceId_, pin->c_str(), &inOut, libContext_);
}

int Token::importAesKey(const PinText& pin, QueltaSymmetricKey& inOut) const
{
    return deviceLibrary().importAesKey(deviceId_, pin->c_str(), &inOut, libContext_);
}

DeviceResult<std::size_t> Token::signHash(ByteView keyId, const PinText& pin, ByteView hash,
                                          std::span<unsigned char> signature) const
{
    int length = lengthOf(signature.size());
    const int result = deviceLibrary().signHash(deviceId_, keyId.data(), pin->c_str(), hash.data(), lengthOf(hash.size()),
                                                signature.data(), &length, false, libContext_);
    return checkedLength(result, length, signature.size());
}

int Token::verifySignatureHash(std::uint32_t algorithm, ByteView hash, ByteView publicKey, ByteView signature) const
{
    return deviceLibrary().verifySignatureHash(algorithm, deviceId_, hash.data(), lengthOf(hash.size()), publicKey.data(),
                                               lengthOf(publicKey.size()), signature.data(), lengthOf(signature.size()), nullptr);
}

DeviceResult<DeviceBuffer> Token::decrypt(ByteView keyId, const PinText& pin, ByteView cipher, bool hardware) const
{
    DeviceBuffer plain;
    const int result = deviceLibrary().decrypt(deviceId_, keyId.data(), pin->c_str(), cipher.data(), lengthOf(cipher.size()),
                                               plain.place(), plain.lengthPlace(), hardware, libContext_);
    if (result != 0) return std::unexpected(result);
    return plain;
}

DeviceResult<std::size_t> Token::encrypt(EncryptionType type, PaddingMode padding, ByteView data,
                                         std::span<unsigned char, encryptionRoom> out, ByteView publicKey) const
{
    int length = 0;
    const int result = deviceLibrary().encrypt(type, padding, data.data(), lengthOf(data.size()), out.data(), &length,
                                               publicKey.data(), lengthOf(publicKey.size()), libContext_);
    return checkedLength(result, length, out.size());
}

DeviceResult<std::size_t> Token::decryptSymmetric(ByteView data, std::span<unsigned char> out, ByteView iv, ByteView key) const
{
    int length = 0;
    const int result =
        deviceLibrary().decryptSymetric(deviceId_, data.data(), lengthOf(data.size()), out.data(), &length, iv.data(),
                                        lengthOf(iv.size()), key.data(), lengthOf(key.size()), libContext_);
    return checkedLength(result, length, out.size());
}

DeviceResult<DeviceBuffer> Token::decryptAes(const QueltaSymmetricKey& key, ByteView wrapped) const
{
    const ByteView reference = keyReferenceOf(key);
    DeviceBuffer plain;
    const int result = deviceLibrary().decryptAes(deviceId_, reference.data(), lengthOf(reference.size()), wrapped.data(),
                                                  lengthOf(wrapped.size()), plain.place(), plain.lengthPlace(), key.flag != 0,
                                                  nullptr, 0, libContext_);
    if (result != 0) return std::unexpected(result);
    return plain;
}

int Token::initHash(int mechanism, void*& hash) const
{
    return deviceLibrary().initHash(deviceId_, mechanism, &hash, libContext_);
}

int Token::updateHash(void* hash, ByteView data) const
{
    // The library's length is a signed int, so longer data goes in pieces.
    do {
        const ByteView piece = data.first(std::min<std::size_t>(data.size(), longestDeviceLength));
        if (const int result = deviceLibrary().updateHash(hash, piece.data(), lengthOf(piece.size()), libContext_)) return result;
        data = data.subspan(piece.size());
    } while (!data.empty());
    return 0;
}

DeviceResult<std::size_t> Token::finalHash(void* hash, std::span<unsigned char, digestRoom> digest, std::size_t preset) const
{
    int length = lengthOf(preset);
    const int result = deviceLibrary().finalHash(hash, digest.data(), &length, libContext_);
    return checkedLength(result, length, preset);
}

int Token::random(std::span<unsigned char> out, bool flag) const
{
    return deviceLibrary().generateRamdomNumber(deviceId_, lengthOf(out.size()), out.data(), flag, libContext_);
}

DeviceResult<ByteView> checkedBytes(const DeviceResult<DeviceBuffer>& buffer, std::size_t most)
{
    if (!buffer) return std::unexpected(buffer.error());
    const auto bytes = buffer->upTo(most);
    if (!bytes) return std::unexpected(brokenAnswer);
    return *bytes;
}

DeviceResult<Bytes> publicKeyOfCertificate(ByteView der)
{
    CertificateDetails details;
    if (const int result = deviceLibrary().getCertificateDetails(der.data(), lengthOf(der.size()), details, nullptr)) {
        return std::unexpected(result);
    }
    return std::move(details.publicKey);
}

} // namespace quelta
