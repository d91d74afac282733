// RSA as PKCS#1 (RFC 8017) has it. Keys are made, and signatures made and checked, by bcrypt.dll; what Wine's lacks (no padding,
// OAEP) is calculated here.
#pragma once

#include "crypto/asymmetric_key.h"

#include <optional>

namespace quelta::softtoken {

RsaPrivate generateRsaKey(std::size_t bits);
// Throws TokenError unless the numbers belong together.
void requireConsistent(const RsaPrivate& key);
std::size_t bitsOf(const RsaPublic& key);
std::size_t bytesOf(const RsaPublic& key);

Bytes rsaSign(const RsaPrivate& key, ByteView digest);
bool rsaVerify(const RsaPublic& key, ByteView digest, ByteView signature);

enum class RsaPadding { pkcs1, oaepSha1 };
Bytes rsaEncrypt(const RsaPublic& key, RsaPadding padding, ByteView data);
// Finds out itself which padding was used: OAEP with SHA-1 or SHA-256 and no label, else PKCS#1 v1.5. Nothing if the data was not
// encrypted for this key: callers try both byte orders.
std::optional<Bytes> rsaDecrypt(const RsaPrivate& key, ByteView cipher);

} // namespace quelta::softtoken
