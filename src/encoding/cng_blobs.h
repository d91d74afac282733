// CNG key blobs: the published BCRYPT_RSAKEY_BLOB and BCRYPT_KEY_DATA_BLOB_HEADER. Integers are little-endian, moduli most
// significant byte first. Reads only within the span it is given; the views in a result refer to it.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

namespace quelta {

struct CngPublicKey {
    std::uint32_t bitLength;
    ByteView modulus;
};

// Nothing if the blob is shorter than its header and what that announces, or lacks the magic "RSA1".
std::optional<CngPublicKey> parseCngPublicBlob(ByteView blob);

// A blob of 27 bytes more than the key: the key's bytes as they stand, their number as length, exponent 65537.
Bytes writeCngPublicBlob(ByteView publicKey);

// The key bytes; nothing if the blob is shorter than its header and what that announces, or lacks the magic "KDBM".
std::optional<ByteView> parseKeyDataBlob(ByteView blob);

} // namespace quelta
