#include "encoding/capi_blobs.h"

#include "encoding/little_endian.h"
#include "encoding/rsa_public_key.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr std::size_t magicOffset = 8;
constexpr std::size_t bitLengthOffset = 12;
constexpr std::size_t exponentOffset = 16;
constexpr std::uint8_t blobVersion = 2;

} // namespace

CapiBlobHeader readCapiBlobHeader(ByteView blob)
{
    return {blob[0], blob[1], readU32(blob, 4)};
}

ByteView keyOfCapiBlob(ByteView blob)
{
    return blob.subspan(capiKeyBlobHeaderSize);
}

ByteView wrappedKeyOfCapiBlob(ByteView blob)
{
    return blob.subspan(capiBlobHeaderSize, blob.size() - capiKeyBlobHeaderSize);
}

std::optional<CapiPublicKey> parseCapiPublicBlob(ByteView blob)
{
    if (blob.size() < capiPublicBlobHeaderSize || readU32(blob, magicOffset) != rsaPublicMagic) return std::nullopt;
    CapiPublicKey key{};
    key.bitLength = readU32(blob, bitLengthOffset);
    const std::size_t modulusSize = key.bitLength / 8;
    if (blob.size() - capiPublicBlobHeaderSize < modulusSize) return std::nullopt;
    key.modulus = blob.subspan(capiPublicBlobHeaderSize, modulusSize);
    const ByteView exponent = blob.subspan(exponentOffset, key.exponent.size());
    std::reverse_copy(exponent.begin(), exponent.end(), key.exponent.begin());
    return key;
}

Bytes capiPublicKeyToDer(const CapiPublicKey& key)
{
    return rsaPublicKeyToDer(reversed(key.modulus), key.exponent);
}

Bytes writeCapiPublicBlob(std::uint32_t algorithm, ByteView publicKey)
{
    Bytes blob = {blobTypePublicKey, blobVersion, 0, 0};
    appendU32(blob, algorithm);
    appendU32(blob, rsaPublicMagic);
    appendU32(blob, static_cast<std::uint32_t>(publicKey.size() * 8));
    appendU32(blob, defaultPublicExponent);
    blob.insert(blob.end(), publicKey.rbegin(), publicKey.rend());
    return blob;
}

} // namespace quelta
