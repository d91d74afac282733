// The record behind HCRYPTHASH, owned by the handle and freed by CPDestroyHash. The digest is computed on the token.
#pragma once

#include "csp/entry.h"
#include "token/token.h"

#include <array>

namespace quelta {

struct HashContext {
    // The token's hash mechanism; signing overwrites it with the chosen key pair's algorithm code, which is what later queries
    // see.
    std::int32_t mechanism = 0;
    // Never set, only logged.
    std::int32_t hashAlgorithm = 0;
    // As the caller last set it; its pointers are never followed.
    HMAC_INFO hmacInfo{};
    // Abandoned, never released: the library has no call for it.
    void* hashHandle = nullptr;
    bool inUse = false;
    // Never set, so that HP_HMAC_INFO can't be read back.
    bool hmacSet = false;
    // The final digest was read or set.
    bool finished = false;
    std::array<unsigned char, digestRoom> hashValue{};
    // Of the key pair that signs, once it is chosen.
    std::optional<std::array<unsigned char, keyIdSize>> keyId;
    // 0 as long as the digest is not final.
    std::uint32_t hashLength = 0;
    std::uint32_t hashSize = 0;

    ByteView digest() const { return ByteView(hashValue).first(hashLength); }
};

// Null for a null handle.
HashContext* hashOf(HCRYPTHASH handle);

// Has the token finish the digest and keeps it; false, with nothing kept, if it can't or reports a length above `preset`.
bool finaliseDigest(const Token& token, HashContext& hash, std::size_t preset);

} // namespace quelta
