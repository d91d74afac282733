// The digests that the tool signs with and believes; the others are broken.
#pragma once

#include "base/table.h"
#include "common/bcrypt_calls.h"
#include "tools/console/failure.h"

#include <string>

namespace quelta::tools {

// Null if there is none.
inline const KnownDigest* digestOfOid(std::string_view oid)
{
    const KnownDigest* kind = findRow(knownDigests, &KnownDigest::oid, oid);
    return kind && !kind->ecdsaOid.empty() ? kind : nullptr;
}

inline const KnownDigest& digestOfName(std::string_view name)
{
    const KnownDigest* kind = findRow(knownDigests, &KnownDigest::name, name);
    if (!kind) throw Failure("unknown hash algorithm " + std::string(name) + "; take sha256, sha384, sha512 or sha1");
    return *kind;
}

} // namespace quelta::tools
