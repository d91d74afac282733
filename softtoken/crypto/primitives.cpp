#include "crypto/primitives.h"

#include <algorithm>
#include <limits>

namespace quelta::softtoken {

namespace {

constexpr ULONG mostAtOnce = 0x40000000;

template <class Rule>
const DigestAlgorithm* findDigest(Rule rule);

} // namespace

const DigestAlgorithm md5{BCRYPT_MD5_ALGORITHM, 16, "1.2.840.113549.2.5", "", 1};
const DigestAlgorithm sha1{BCRYPT_SHA1_ALGORITHM, 20, "1.3.14.3.2.26", "1.2.840.113549.2.7", 2};
const DigestAlgorithm sha256{BCRYPT_SHA256_ALGORITHM, 32, "2.16.840.1.101.3.4.2.1", "1.2.840.113549.2.9", 3};

namespace {

const DigestAlgorithm sha384{BCRYPT_SHA384_ALGORITHM, 48, "2.16.840.1.101.3.4.2.2", "1.2.840.113549.2.10", 4};
const DigestAlgorithm sha512{BCRYPT_SHA512_ALGORITHM, 64, "2.16.840.1.101.3.4.2.3", "1.2.840.113549.2.11", 5};

const DigestAlgorithm* const digests[] = {&md5, &sha1, &sha256, &sha384, &sha512};

template <class Rule>
const DigestAlgorithm* findDigest(Rule rule)
{
    for (const DigestAlgorithm* row : digests)
        if (rule(*row)) return row;
    return nullptr;
}

} // namespace

void requireSuccess(NTSTATUS status, const char* what)
{
    if (status < 0) throw TokenError(std::string(what) + " was refused by the system, status " + std::to_string(status));
}

BCRYPT_ALG_HANDLE Providers::get(const wchar_t* algorithm, ProviderUse use)
{
    const std::lock_guard guard(mutex_);
    auto& found = opened_[{algorithm, use}];
    if (!found) {
        BCRYPT_ALG_HANDLE handle = nullptr;
        const ULONG flags = use == ProviderUse::hmac ? BCRYPT_ALG_HANDLE_HMAC_FLAG : 0;
        requireSuccess(BCryptOpenAlgorithmProvider(&handle, algorithm, nullptr, flags), "opening a cryptographic algorithm");
        found.reset(handle);
    }
    return found.get();
}

ULONG lengthOf(ByteView bytes)
{
    if (bytes.size() > std::numeric_limits<ULONG>::max()) throw TokenError(Result::badArgument, "too much data at once");
    return static_cast<ULONG>(bytes.size());
}

PUCHAR dataOf(ByteView bytes)
{
    return const_cast<PUCHAR>(bytes.data());
}

Bytes randomBytes(std::size_t count)
{
    Bytes bytes(count);
    if (bytes.empty()) return bytes;
    requireSuccess(BCryptGenRandom(nullptr, bytes.data(), lengthOf(bytes), BCRYPT_USE_SYSTEM_PREFERRED_RNG), "a random number");
    return bytes;
}

const DigestAlgorithm* digestOfMechanism(int mechanism)
{
    return findDigest([&](const DigestAlgorithm& row) { return row.mechanism == mechanism; });
}

const DigestAlgorithm* digestOfSize(std::size_t size)
{
    return findDigest([&](const DigestAlgorithm& row) { return row.size == size; });
}

const DigestAlgorithm* digestOfOid(std::string_view oid)
{
    return findDigest([&](const DigestAlgorithm& row) { return row.oid == oid; });
}

const DigestAlgorithm* digestOfHmacOid(std::string_view oid)
{
    return findDigest([&](const DigestAlgorithm& row) { return row.hmacOid == oid; });
}

SystemHash startDigest(const DigestAlgorithm& algorithm)
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    requireSuccess(BCryptCreateHash(provider(algorithm.name), &hash, nullptr, 0, nullptr, 0, 0), "a digest");
    return SystemHash(hash);
}

void updateDigest(const SystemHash& hash, ByteView data)
{
    while (!data.empty()) {
        const ByteView piece = data.first(std::min<std::size_t>(data.size(), mostAtOnce));
        requireSuccess(BCryptHashData(hash.get(), dataOf(piece), lengthOf(piece), 0), "a digest");
        data = data.subspan(piece.size());
    }
}

Bytes finishDigest(const SystemHash& hash, const DigestAlgorithm& algorithm)
{
    Bytes value(algorithm.size);
    requireSuccess(BCryptFinishHash(hash.get(), value.data(), lengthOf(value), 0), "a digest");
    return value;
}

Bytes digest(const DigestAlgorithm& algorithm, ByteView data)
{
    const SystemHash hash = startDigest(algorithm);
    updateDigest(hash, data);
    return finishDigest(hash, algorithm);
}

Bytes hmac(const DigestAlgorithm& algorithm, ByteView key, ByteView data)
{
    BCRYPT_HASH_HANDLE handle = nullptr;
    const BCRYPT_ALG_HANDLE owner = provider(algorithm.name, ProviderUse::hmac);
    requireSuccess(BCryptCreateHash(owner, &handle, nullptr, 0, dataOf(key), lengthOf(key), 0), "a message code");
    const SystemHash hash(handle);
    updateDigest(hash, data);
    return finishDigest(hash, algorithm);
}

Bytes pbkdf2(const DigestAlgorithm& algorithm, ByteView password, ByteView salt, std::uint64_t iterations, std::size_t size)
{
    Bytes key(size);
    requireSuccess(BCryptDeriveKeyPBKDF2(provider(algorithm.name, ProviderUse::hmac), dataOf(password), lengthOf(password),
                                         dataOf(salt), lengthOf(salt), iterations, key.data(), lengthOf(key), 0),
                   "deriving a key from a password");
    return key;
}

bool equalInConstantTime(ByteView left, ByteView right)
{
    if (left.size() != right.size()) return false;
    unsigned int difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i) difference |= static_cast<unsigned int>(left[i] ^ right[i]);
    return difference == 0;
}

} // namespace quelta::softtoken
