// What the system's own cryptography (bcrypt.dll) does for the software token, behind owning types and byte vectors.
// Every function throws TokenError when the system refuses.
#pragma once

#include "base/bytes.h"
#include "store/token_error.h"

#include <windows.h>

#include <bcrypt.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace quelta::softtoken {

struct DestroyKey {
    void operator()(BCRYPT_KEY_HANDLE key) const { BCryptDestroyKey(key); }
};
using SystemKey = std::unique_ptr<void, DestroyKey>;

struct DestroyHash {
    void operator()(BCRYPT_HASH_HANDLE hash) const { BCryptDestroyHash(hash); }
};
using SystemHash = std::unique_ptr<void, DestroyHash>;

struct CloseProvider {
    void operator()(BCRYPT_ALG_HANDLE algorithm) const { BCryptCloseAlgorithmProvider(algorithm, 0); }
};

enum class ProviderUse { plain, hmac };

// The system's algorithms, each opened once.
class Providers {
public:
    BCRYPT_ALG_HANDLE get(const wchar_t* algorithm, ProviderUse use);

private:
    std::mutex mutex_;
    std::map<std::pair<std::wstring, ProviderUse>, std::unique_ptr<void, CloseProvider>> opened_;
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

// One row for each digest: how bcrypt calls it, its size, its object identifiers and the number that the device library gives it.
struct DigestAlgorithm {
    const wchar_t* name;
    std::size_t size;
    std::string_view oid;
    std::string_view hmacOid;
    int mechanism;
};

extern const DigestAlgorithm md5;
extern const DigestAlgorithm sha1;
extern const DigestAlgorithm sha256;

// Null when nothing fits.
const DigestAlgorithm* digestOfMechanism(int mechanism);
const DigestAlgorithm* digestOfSize(std::size_t size);
const DigestAlgorithm* digestOfOid(std::string_view oid);
const DigestAlgorithm* digestOfHmacOid(std::string_view oid);

SystemHash startDigest(const DigestAlgorithm& algorithm);
void updateDigest(const SystemHash& hash, ByteView data);
Bytes finishDigest(const SystemHash& hash, const DigestAlgorithm& algorithm);
Bytes digest(const DigestAlgorithm& algorithm, ByteView data);
Bytes hmac(const DigestAlgorithm& algorithm, ByteView key, ByteView data);
Bytes pbkdf2(const DigestAlgorithm& algorithm, ByteView password, ByteView salt, std::uint64_t iterations, std::size_t size);

bool equalInConstantTime(ByteView left, ByteView right);

} // namespace quelta::softtoken
