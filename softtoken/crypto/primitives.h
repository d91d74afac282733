// The digests that the token supports, from the common table.
#pragma once

#include "base/bytes.h"
#include "base/table.h"
#include "common/known_algorithms.h"

namespace quelta::softtoken {

consteval const KnownDigest& digestNamed(std::string_view name)
{
    return *std::ranges::find(knownDigests, name, &KnownDigest::name);
}
inline constexpr const KnownDigest& md5 = digestNamed("md5");
inline constexpr const KnownDigest& sha1 = digestNamed("sha1");
inline constexpr const KnownDigest& sha256 = digestNamed("sha256");
inline constexpr const KnownDigest& sha384 = digestNamed("sha384");
inline constexpr const KnownDigest& sha512 = digestNamed("sha512");

} // namespace quelta::softtoken
