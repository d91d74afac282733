// Reads and writes CNG key blobs: the published BCRYPT_RSAKEY_BLOB and BCRYPT_KEY_DATA_BLOB_HEADER. Integers are little-endian,
// moduli begin with the most significant byte. Functions read only within the given span, and views in a result refer to it.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

namespace quelta {

struct CngPublicKey {
    std::uint32_t bitLength;
    ByteView modulus;
};

// Parses a public key blob. Returns nullopt if the magic "RSA1" is missing or the blob is shorter than its header announces.
std::optional<CngPublicKey> parseCngPublicBlob(ByteView blob);

// Returns a public key blob: 27 bytes (header with the bit length, exponent 65537), then the key's bytes unchanged.
Bytes writeCngPublicBlob(ByteView publicKey);

// Returns the key bytes; nullopt if the magic "KDBM" is missing or the blob is shorter than its header announces.
std::optional<ByteView> parseKeyDataBlob(ByteView blob);

} // namespace quelta
