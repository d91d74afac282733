#include "common/bcrypt_calls.h"
#include "crypto/primitives.h"
#include "device/guard.h"
#include "token/device_functions.h"

#include <map>
#include <mutex>

namespace quelta::softtoken {

namespace {

// The device library numbers the digests from 1.
constexpr const KnownDigest* mechanisms[] = {&md5, &sha1, &sha256, &sha384, &sha512};

// Callers may abandon a digest without closing it. The oldest one is dropped when there are too many.
constexpr std::size_t mostDigests = 4096;

struct Started {
    const KnownDigest* kind;
    Digest digest;
};

// A caller's handle is a number, not an address. A wrong handle is not found and does no harm.
struct StartedDigests {
    std::mutex mutex;
    std::uintptr_t last = 0;
    std::map<std::uintptr_t, Started> byHandle;
};

StartedDigests started;

auto findStarted(void* handle)
{
    const auto found = started.byHandle.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == started.byHandle.end()) throw TokenError(Result::badArgument, "no digest with this handle");
    return found;
}

} // namespace

} // namespace quelta::softtoken

using namespace quelta;
using namespace quelta::softtoken;

int quelta_initHash(const char* deviceId, int algorithm, void** hash, void*)
{
    return withToken(deviceId, [&](const StoredToken&) {
        if (hash == nullptr || algorithm < 1 || algorithm > std::ssize(mechanisms)) return Result::badArgument;
        const KnownDigest& kind = *mechanisms[algorithm - 1];
        const std::lock_guard guard(started.mutex);
        if (started.byHandle.size() >= mostDigests) started.byHandle.erase(started.byHandle.begin());
        started.byHandle.emplace(++started.last, Started{&kind, Digest(kind)});
        *hash = reinterpret_cast<void*>(started.last);
        return Result::ok;
    });
}

int quelta_updateHash(void* hash, const unsigned char* data, int length, void*)
{
    return withToken([&](const StoredToken&) {
        const std::lock_guard guard(started.mutex);
        findStarted(hash)->second.digest.update(viewOf(data, length));
        return Result::ok;
    });
}

int quelta_finalHash(void* hash, unsigned char* out, int* length, void*)
{
    return withToken([&](const StoredToken&) {
        if (out == nullptr || length == nullptr) return Result::badArgument;
        const std::lock_guard guard(started.mutex);
        const auto found = findStarted(hash);
        const int room = std::exchange(*length, static_cast<int>(found->second.kind->size));
        if (room < *length) return Result::bufferTooSmall;
        std::ranges::copy(found->second.digest.finish(), out);
        started.byHandle.erase(found);
        return Result::ok;
    });
}
