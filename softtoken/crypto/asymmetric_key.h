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

// Throws TokenError unless an RSA key's numbers belong together. Slow, so not part of decoding; a scalar can't but fit its point.
void requireConsistent(const PrivateKey& key);

// The device library's code; throws TokenError for a size that the token does not hold.
std::uint32_t algorithmOf(const PublicKey& key);
// "rsa2048", "p256"; and back, 0 if there is no such name.
std::string nameOfAlgorithm(std::uint32_t algorithm);
std::uint32_t algorithmNamed(std::string_view name);
std::size_t bitsOfAlgorithm(std::uint32_t algorithm);
bool isRsaAlgorithm(std::uint32_t algorithm);

PrivateKey generateKey(std::uint32_t algorithm);

// PKCS#1 v1.5 with the DigestInfo of the digest's length, or ECDSA. Throws TokenError for a length that no digest has (RSA).
Bytes signDigest(const PrivateKey& key, ByteView digest);
bool verifyDigest(const PublicKey& key, ByteView digest, ByteView signature);

} // namespace quelta::softtoken
