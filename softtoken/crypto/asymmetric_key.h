// Key pairs: RSA with all its numbers, or the scalar and point of a curve.
#pragma once

#include "base/bytes.h"
#include "crypto/ecdsa.h"

#include <string>
#include <variant>

namespace quelta::softtoken {

struct RsaPublic {
    Bytes modulus, exponent;
    bool operator==(const RsaPublic&) const = default;
};

struct EcPublic {
    const Curve* curve;
    Bytes point;
    bool operator==(const EcPublic&) const = default;
};

using PublicKey = std::variant<RsaPublic, EcPublic>;

struct RsaPrivate {
    RsaPublic shown;
    Bytes exponent, prime1, prime2, exponent1, exponent2, coefficient;
};

struct EcPrivate {
    EcPublic shown;
    Bytes scalar;
};

using PrivateKey = std::variant<RsaPrivate, EcPrivate>;

inline PublicKey publicOf(const PrivateKey& key)
{
    return std::visit([](const auto& pair) -> PublicKey { return pair.shown; }, key);
}

struct KeyAlgorithm {
    std::uint32_t code; // the device library's
    std::string_view name;
    std::size_t bits;
    bool rsa;
};

// Returns the algorithm of a key. Throws TokenError for a size that the token does not support.
std::uint32_t algorithmOf(const PublicKey& key);
// Finds an algorithm by its code, or by a name like "rsa2048" or "p256". Returns null if there is none.
const KeyAlgorithm* keyAlgorithm(std::uint32_t code);
const KeyAlgorithm* keyAlgorithmNamed(std::string_view name);

PrivateKey generateKey(std::uint32_t algorithm);

// Signs with PKCS#1 v1.5 or ECDSA. The digest's length selects RSA's DigestInfo. Throws TokenError if no digest has that length.
Bytes signDigest(const PrivateKey& key, ByteView digest);
bool verifyDigest(const PublicKey& key, ByteView digest, ByteView signature);

} // namespace quelta::softtoken
