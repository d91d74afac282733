// What the system's own cryptography (bcrypt.dll) does for the software token, behind owning types and byte vectors.
// Every function throws TokenError when the system refuses.
#pragma once

#include "base/bytes.h"
#include "base/object_ids.h"
#include "base/token_error.h"
#include "base/windows_objects.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace quelta::softtoken {

enum class ProviderUse { plain, hmac };

// The system's algorithms, each opened once.
class Providers {
public:
    BCRYPT_ALG_HANDLE get(const wchar_t* algorithm, ProviderUse use);

private:
    std::mutex mutex_;
    std::map<std::pair<std::wstring, ProviderUse>, BcryptAlgorithm> opened_;
};

// In the header, so that it outlives whatever keeps digests or keys in another file. None of the process-wide objects here is a
// static of a function: the guard of such a one makes the statically linked thread runtime keep a record of the thread, with two
// handles and a TLS slot, that no unloading of the library releases.
inline Providers providers;

inline BCRYPT_ALG_HANDLE provider(const wchar_t* algorithm, ProviderUse use = ProviderUse::plain)
{
    return providers.get(algorithm, use);
}

void requireSuccess(NTSTATUS status, const char* what);

// bcrypt's functions want lengths as ULONG and buffers without const.
ULONG lengthOf(ByteView bytes);
PUCHAR dataOf(ByteView bytes);

Bytes randomBytes(std::size_t count);

consteval const KnownDigest& digestNamed(std::string_view name)
{
    return *std::ranges::find(knownDigests, name, &KnownDigest::name);
}
inline constexpr const KnownDigest& md5 = digestNamed("md5");
inline constexpr const KnownDigest& sha1 = digestNamed("sha1");
inline constexpr const KnownDigest& sha256 = digestNamed("sha256");

// By the number that the device library gives it, by its size, and so on; null when nothing fits.
const KnownDigest* digestOfMechanism(int mechanism);
const KnownDigest* digestOfSize(std::size_t size);
const KnownDigest* digestOfOid(std::string_view oid);
const KnownDigest* digestOfHmacOid(std::string_view oid);

BcryptHash startDigest(const KnownDigest& algorithm);
void updateDigest(const BcryptHash& hash, ByteView data);
Bytes finishDigest(const BcryptHash& hash, const KnownDigest& algorithm);
Bytes digest(const KnownDigest& algorithm, ByteView data);
Bytes hmac(const KnownDigest& algorithm, ByteView key, ByteView data);
Bytes pbkdf2(const KnownDigest& algorithm, ByteView password, ByteView salt, std::uint64_t iterations, std::size_t size);

bool equalInConstantTime(ByteView left, ByteView right);

} // namespace quelta::softtoken
