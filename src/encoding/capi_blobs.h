// CryptoAPI key blobs: the published BLOBHEADER, then what the type asks for. Integers are little-endian, moduli least
// significant byte first. Reads only within the span it is given; the views in a result refer to it.
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
// A symmetric blob has one more word before its key: the key's size or the algorithm that encrypts it.
constexpr std::size_t capiKeyBlobHeaderSize = 12;
constexpr std::size_t capiPublicBlobHeaderSize = 20;

struct CapiBlobHeader {
    std::uint8_t type;
    std::uint8_t version;
    std::uint32_t algorithm;
};

// The blob must have at least the 8 bytes of the header.
CapiBlobHeader readCapiBlobHeader(ByteView blob);

// The key begins at byte 12 and ends with the blob, which must have at least 12 bytes.
ByteView keyOfCapiBlob(ByteView blob);

// The wrapped key begins right after the 8-byte header, yet its length is the blob's less 12: callers write four bytes more
// behind the key. The blob must have at least 12 bytes.
ByteView wrappedKeyOfCapiBlob(ByteView blob);

struct CapiPublicKey {
    std::uint32_t bitLength;
    // Least significant byte first. A view into the blob, so that a modulus of an unsupported size is not copied.
    ByteView modulus;
    // Most significant byte first; a fourth byte of the blob's exponent is dropped.
    std::array<unsigned char, 3> exponent;
};

// Nothing if the blob is too short, for its header or for the modulus it announces, or lacks the magic "RSA1". The BLOBHEADER is
// not looked at.
std::optional<CapiPublicKey> parseCapiPublicBlob(ByteView blob);

// The DER form of modulus and exponent.
Bytes capiPublicKeyToDer(const CapiPublicKey& key);

// A blob of 20 bytes more than the key: the key's bytes in reverse order, their number as length, exponent 65537.
Bytes writeCapiPublicBlob(std::uint32_t algorithm, ByteView publicKey);

} // namespace quelta
