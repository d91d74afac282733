#include "device/guard.h"
#include "device/hash_table.h"
#include "token/device_functions.h"

#include <algorithm>

using namespace quelta;
using namespace quelta::softtoken;

int quelta_initHash(const char* deviceId, int algorithm, void** hash, void*)
{
    return withToken(deviceId, [&](const TokenState&) {
        const KnownDigest* chosen = digestOfMechanism(algorithm);
        if (hash == nullptr || chosen == nullptr) return Result::badArgument;
        *hash = hashTable.start(*chosen);
        return Result::ok;
    });
}

int quelta_updateHash(void* hash, const unsigned char* data, int length, void*)
{
    return withToken([&](const TokenState&) {
        hashTable.update(hash, viewOf(data, length));
        return Result::ok;
    });
}

int quelta_finalHash(void* hash, unsigned char* out, int* length, void*)
{
    return withToken([&](const TokenState&) {
        if (out == nullptr || length == nullptr) return Result::badArgument;
        std::size_t needed = 0;
        const auto value = hashTable.finish(hash, *length < 0 ? 0 : static_cast<std::size_t>(*length), needed);
        *length = static_cast<int>(needed);
        if (!value) return Result::bufferTooSmall;
        std::ranges::copy(*value, out);
        return Result::ok;
    });
}
