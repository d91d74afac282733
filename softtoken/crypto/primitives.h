// Digests, message codes, keys out of passwords and random numbers; the system calculates them, and every function throws
// TokenError when it refuses. Nothing of the system stands here: what reads files builds where there is none.
#pragma once

#include "base/bytes.h"
#include "base/table.h"
#include "base/token_error.h"
#include "common/known_algorithms.h"

#include <string>
#include <string_view>

namespace quelta::softtoken {

Bytes randomBytes(std::size_t count);

consteval const KnownDigest& digestNamed(std::string_view name)
{
    return *std::ranges::find(knownDigests, name, &KnownDigest::name);
}
inline constexpr const KnownDigest& md5 = digestNamed("md5");
inline constexpr const KnownDigest& sha1 = digestNamed("sha1");
inline constexpr const KnownDigest& sha256 = digestNamed("sha256");

// By its size, and so on; null when nothing fits.
inline const KnownDigest* digestOfSize(std::size_t size)
{
    return findRow(knownDigests, &KnownDigest::size, size);
}
inline const KnownDigest* digestOfOid(std::string_view oid)
{
    return findRow(knownDigests, &KnownDigest::oid, oid);
}
inline const KnownDigest* digestOfHmacOid(std::string_view oid)
{
    return findRow(knownDigests, &KnownDigest::hmacOid, oid);
}

Bytes digest(const KnownDigest& algorithm, ByteView data);
Bytes hmac(const KnownDigest& algorithm, ByteView key, ByteView data);
Bytes pbkdf2(const KnownDigest& algorithm, ByteView password, ByteView salt, std::uint64_t iterations, std::size_t size);

// RFC 7292, appendix B: what the derived bytes are for.
enum class Purpose : unsigned char { key = 1, iv = 2, mac = 3 };
// Without a password at all (not the same as an empty one) if it is null; the password is UTF-8.
Bytes pkcs12Derive(const KnownDigest& algorithm, Purpose purpose, const std::string* password, ByteView salt,
                   std::uint64_t iterations, std::size_t size);

inline bool equalInConstantTime(ByteView left, ByteView right)
{
    if (left.size() != right.size()) return false;
    unsigned int difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i) difference |= static_cast<unsigned int>(left[i] ^ right[i]);
    return difference == 0;
}

} // namespace quelta::softtoken
