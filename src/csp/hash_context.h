// The record behind HCRYPTHASH. The handle owns the record; CPDestroyHash frees it. The token computes the digest.
#pragma once

#include "csp/entry.h"
#include "token/token.h"

#include <array>

namespace quelta {

struct HashContext {
    // The token's hash mechanism. Signing overwrites this with the algorithm code of the chosen key pair, and later queries see
    // that code.
    std::int32_t mechanism = 0;
    // Always 0; only logged.
    std::int32_t hashAlgorithm = 0;
    // The value that the caller last set. Its pointers are never followed.
    HMAC_INFO hmacInfo{};
    // The token's hash. It is never released: the library has no function for that.
    void* hashHandle = nullptr;
    bool inUse = false;
    // Never set, so HP_HMAC_INFO cannot be read back.
    bool hmacSet = false;
    // True after the final digest was read or set.
    bool finished = false;
    std::array<unsigned char, digestRoom> hashValue{};
    // The identifier of the key pair that signs, once chosen.
    std::optional<std::array<unsigned char, keyIdSize>> keyId;
    // 0 until the digest is final.
    std::uint32_t hashLength = 0;
    std::uint32_t hashSize = 0;

    ByteView digest() const { return ByteView(hashValue).first(hashLength); }
};

// Returns null for a null handle.
HashContext* hashOf(HCRYPTHASH handle);

// Lets the token finish the digest and stores it. Returns false and stores nothing if that fails or it is longer than `preset`.
bool finaliseDigest(const Token& token, HashContext& hash, std::size_t preset);

} // namespace quelta
