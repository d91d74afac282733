// The blocks of PKCS#1 (RFC 8017), as long as the key's modulus.
#pragma once

#include "crypto/primitives.h"

#include <optional>

namespace quelta::softtoken {

constexpr std::size_t pkcs1Overhead = 11;

Bytes digestInfo(const KnownDigest& algorithm, ByteView digest);
// Of type 1; the content is a DigestInfo, or the bare digest where the signature's definition has none.
Bytes signaturePadded(ByteView content, std::size_t size);
// Of type 2.
Bytes encryptionPadded(ByteView data, std::size_t size);
std::optional<Bytes> pkcs1Unpadded(ByteView block);
// With an empty label, and the same digest for the mask.
Bytes oaepPadded(const KnownDigest& algorithm, ByteView data, std::size_t size);
std::optional<Bytes> oaepUnpadded(const KnownDigest& algorithm, ByteView block);

} // namespace quelta::softtoken
