// The padded blocks of PKCS#1 (RFC 8017). `size` is the length of the key's modulus in bytes.
#pragma once

#include "crypto/primitives.h"

#include <optional>

namespace quelta::softtoken {

constexpr std::size_t pkcs1Overhead = 11;

Bytes digestInfo(const KnownDigest& algorithm, ByteView digest);
// Pads with block type 1. The content is a DigestInfo, or the digest alone for MD5 with SHA-1.
Bytes signaturePadded(ByteView content, std::size_t size);
// Pads with block type 2.
Bytes encryptionPadded(ByteView data, std::size_t size);
std::optional<Bytes> pkcs1Unpadded(ByteView block);
// The label is empty. The mask generation uses the same digest.
Bytes oaepPadded(const KnownDigest& algorithm, ByteView data, std::size_t size);
std::optional<Bytes> oaepUnpadded(const KnownDigest& algorithm, ByteView block);

} // namespace quelta::softtoken
