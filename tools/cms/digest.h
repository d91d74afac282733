// Digests that signatures use, computed by bcrypt.dll.
#pragma once

#include "base/bytes.h"
#include "common/crypto_objects.h"
#include "common/known_algorithms.h"

namespace quelta::tools {

// Those that the tool signs with, or null.
const KnownDigest* digestOfOid(std::string_view oid);
// Throws a Failure if there is none.
const KnownDigest& digestOfName(std::string_view name);

class Digest {
public:
    explicit Digest(const KnownDigest& kind);
    void update(ByteView bytes);
    Bytes finish();

private:
    const KnownDigest* kind_;
    BcryptAlgorithm provider_;
    BcryptHash hash_;
};

Bytes digestOf(const KnownDigest& kind, ByteView bytes);

} // namespace quelta::tools
