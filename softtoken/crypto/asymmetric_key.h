// Key pairs as values: RSA with all its numbers, or a curve's scalar and point.
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
    std::uint32_t code; // as the device library has it
    std::string_view name;
    std::size_t bits;
    bool rsa;
};

// Throws TokenError for a size that the token does not hold.
std::uint32_t algorithmOf(const PublicKey& key);
// By the code, and by a name like "rsa2048" or "p256"; null if there is none.
const KeyAlgorithm* keyAlgorithm(std::uint32_t code);
const KeyAlgorithm* keyAlgorithmNamed(std::string_view name);

PrivateKey generateKey(std::uint32_t algorithm);

// PKCS#1 v1.5 with the DigestInfo of the digest's length, or ECDSA. Throws TokenError for a length that no digest has (RSA).
Bytes signDigest(const PrivateKey& key, ByteView digest);
bool verifyDigest(const PublicKey& key, ByteView digest, ByteView signature);

} // namespace quelta::softtoken
