// The system's own cryptography (bcrypt.dll) behind owning types. Every function throws TokenError when the system refuses.
#pragma once

#include "common/crypto_objects.h"
#include "crypto/primitives.h"

#include <map>
#include <mutex>
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

// The system's functions want lengths as ULONG and buffers without const.
ULONG lengthOf(ByteView bytes);
PUCHAR dataOf(ByteView bytes);

// By the number that the device library gives it; null when there is none.
const KnownDigest* digestOfMechanism(int mechanism);
BcryptHash startDigest(const KnownDigest& algorithm);
void updateDigest(const BcryptHash& hash, ByteView data);
Bytes finishDigest(const BcryptHash& hash, const KnownDigest& algorithm);

} // namespace quelta::softtoken
