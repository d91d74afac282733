#include "digest.h"

#include "bcrypt_call.h"
#include "failure.h"

#include <algorithm>
#include <string>

namespace quelta {

namespace {

constexpr HashAlgorithm table[] = {
    {"sha256", BCRYPT_SHA256_ALGORITHM, CALG_SHA_256, 32, "2.16.840.1.101.3.4.2.1", "1.2.840.10045.4.3.2"},
    {"sha384", BCRYPT_SHA384_ALGORITHM, CALG_SHA_384, 48, "2.16.840.1.101.3.4.2.2", "1.2.840.10045.4.3.3"},
    {"sha512", BCRYPT_SHA512_ALGORITHM, CALG_SHA_512, 64, "2.16.840.1.101.3.4.2.3", "1.2.840.10045.4.3.4"},
    {"sha1", BCRYPT_SHA1_ALGORITHM, CALG_SHA1, 20, "1.3.14.3.2.26", "1.2.840.10045.4.1"},
};

} // namespace

std::span<const HashAlgorithm> hashAlgorithms()
{
    return table;
}

const HashAlgorithm* hashOfOid(std::string_view oid)
{
    const auto* row =
        std::ranges::find(table, oid, [](const HashAlgorithm& algorithm) { return std::string_view(algorithm.oid); });
    return row == std::end(table) ? nullptr : row;
}

const HashAlgorithm& hashOfName(std::string_view name)
{
    const auto* row =
        std::ranges::find(table, name, [](const HashAlgorithm& algorithm) { return std::string_view(algorithm.name); });
    if (row == std::end(table))
        throw Failure("unknown hash algorithm " + std::string(name) + "; take sha256, sha384, sha512 or sha1");
    return *row;
}

Digest::Digest(const HashAlgorithm& algorithm) : algorithm_(&algorithm), provider_(openAlgorithm(algorithm.cngName))
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
    Bytes value(algorithm_->size);
    requireSuccess(BCryptFinishHash(hash_.get(), value.data(), static_cast<ULONG>(value.size()), 0), "can't finish a hash");
    return value;
}

Bytes digestOf(const HashAlgorithm& algorithm, ByteView bytes)
{
    Digest digest(algorithm);
    digest.update(bytes);
    return digest.finish();
}

} // namespace quelta
