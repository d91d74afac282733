// RSA of PKCS#1 (RFC 8017). bcrypt.dll makes keys and signatures. Operations that Wine's bcrypt lacks (no padding, OAEP) are
// computed here.
#pragma once

#include "crypto/asymmetric_key.h"

#include <optional>

namespace quelta::softtoken {

RsaPrivate generateRsaKey(std::size_t bits);
// Throws TokenError unless the numbers form one key.
void requireConsistent(const RsaPrivate& key);
std::size_t bitsOf(const RsaPublic& key);
std::size_t bytesOf(const RsaPublic& key);

Bytes rsaSign(const RsaPrivate& key, ByteView digest);
bool rsaVerify(const RsaPublic& key, ByteView digest, ByteView signature);

enum class RsaPadding { pkcs1, oaepSha1 };
Bytes rsaEncrypt(const RsaPublic& key, RsaPadding padding, ByteView data);
// Tries OAEP with SHA-1 and SHA-256 and an empty label, then PKCS#1 v1.5. Returns nullopt if the data was not encrypted for this
// key. Callers try both byte orders, so that is no error.
std::optional<Bytes> rsaDecrypt(const RsaPrivate& key, ByteView cipher);

} // namespace quelta::softtoken
