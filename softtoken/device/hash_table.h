// The digests in progress. Callers abandon them without closing, so the oldest goes when there are too many.
#pragma once

#include "crypto/bcrypt_objects.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace quelta::softtoken {

class HashTable {
public:
    // What callers hold: never the address of anything, so that a wrong one is only not found.
    using Handle = void*;

    Handle start(const KnownDigest& algorithm);
    // Both throw TokenError for a handle that is not in the table.
    void update(Handle handle, ByteView data);
    // Ends the digest, unless it is longer than the room; null tells that, with the length needed in both cases.
    std::optional<Bytes> finish(Handle handle, std::size_t room, std::size_t& needed);

private:
    struct Entry {
        std::mutex mutex;
        const KnownDigest* algorithm = nullptr;
        BcryptHash hash;
    };
    std::shared_ptr<Entry> find(Handle handle);

    std::mutex mutex_;
    std::uintptr_t lastNumber_ = 0;
    std::map<std::uintptr_t, std::shared_ptr<Entry>> entries_;
};

extern HashTable hashTable;

} // namespace quelta::softtoken
