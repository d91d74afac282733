#include "tools/cms/digest.h"

#include "base/table.h"
#include "tools/cms/bcrypt_call.h"
#include "tools/console/failure.h"

#include <string>

namespace quelta::tools {

namespace {

// The others are broken, and no signature here is made or believed with them.
const KnownDigest* ifTrusted(const KnownDigest* kind)
{
    return kind && !kind->ecdsaOid.empty() ? kind : nullptr;
}

} // namespace

const KnownDigest* digestOfOid(std::string_view oid)
{
    return ifTrusted(findRow(knownDigests, &KnownDigest::oid, oid));
}

const KnownDigest& digestOfName(std::string_view name)
{
    const KnownDigest* kind = ifTrusted(findRow(knownDigests, &KnownDigest::name, name));
    if (!kind) throw Failure("unknown hash algorithm " + std::string(name) + "; take sha256, sha384, sha512 or sha1");
    return *kind;
}

Digest::Digest(const KnownDigest& kind) : kind_(&kind), provider_(openAlgorithm(kind.systemName))
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    requireSuccess(BCryptCreateHash(provider_.get(), &hash, nullptr, 0, nullptr, 0, 0), "can't start a hash");
    hash_.reset(hash);
}

void Digest::update(ByteView bytes)
{
    requireSuccess(BCryptHashData(hash_.get(), bcryptInput(bytes), static_cast<ULONG>(bytes.size()), 0), "can't hash");
}

Bytes Digest::finish()
{
    Bytes value(kind_->size);
    requireSuccess(BCryptFinishHash(hash_.get(), value.data(), static_cast<ULONG>(value.size()), 0), "can't finish a hash");
    return value;
}

Bytes digestOf(const KnownDigest& kind, ByteView bytes)
{
    Digest digest(kind);
    digest.update(bytes);
    return digest.finish();
}

} // namespace quelta::tools
