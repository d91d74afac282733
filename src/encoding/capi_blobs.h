// Reads and writes CryptoAPI key blobs: the published BLOBHEADER, then the data of the blob's type. Integers are little-endian,
// moduli begin with the least significant byte. Functions read only within the given span, and views in a result refer to it.
#pragma once

#include "base/bytes.h"

#include <array>
#include <cstdint>
#include <optional>

namespace quelta {

constexpr std::uint8_t blobTypeSimple = 1;
constexpr std::uint8_t blobTypePublicKey = 6;
constexpr std::uint8_t blobTypePrivateKey = 7;
constexpr std::uint8_t blobTypePlainTextKey = 8;
constexpr std::uint8_t blobTypePublicKeyEx = 10;
constexpr std::uint8_t blobTypeSymmetricWrapKey = 11;

constexpr std::size_t capiBlobHeaderSize = 8;
// A symmetric blob has one more 32-bit word before its key: the key's size, or the algorithm that encrypts the key.
constexpr std::size_t capiKeyBlobHeaderSize = 12;
constexpr std::size_t capiPublicBlobHeaderSize = 20;

struct CapiBlobHeader {
    std::uint8_t type;
    std::uint8_t version;
    std::uint32_t algorithm;
};

// Reads the header. The blob must have at least 8 bytes.
CapiBlobHeader readCapiBlobHeader(ByteView blob);

// Returns the key, which runs from byte 12 to the end of the blob. The blob must have at least 12 bytes.
ByteView keyOfCapiBlob(ByteView blob);

// Returns the wrapped key. It begins right after the 8-byte header, but its length is the blob's length minus 12, because callers
// write four more bytes behind the key. The blob must have at least 12 bytes.
ByteView wrappedKeyOfCapiBlob(ByteView blob);

struct CapiPublicKey {
    std::uint32_t bitLength;
    // Least significant byte first. This is a view into the blob, so a modulus of an unsupported size is not copied.
    ByteView modulus;
    // Most significant byte first. The most significant of the blob's four exponent bytes is dropped.
    std::array<unsigned char, 3> exponent;
};

// Parses a public key blob. Returns nullopt if the magic "RSA1" is missing or the blob is shorter than its header and the
// announced modulus. The BLOBHEADER is ignored.
std::optional<CapiPublicKey> parseCapiPublicBlob(ByteView blob);

// Returns the key as a DER SubjectPublicKeyInfo.
Bytes capiPublicKeyToDer(const CapiPublicKey& key);

// Returns a public key blob: a header of 20 bytes (bit length = 8 per key byte, exponent 65537), then the key's bytes reversed.
Bytes writeCapiPublicBlob(std::uint32_t algorithm, ByteView publicKey);

} // namespace quelta
