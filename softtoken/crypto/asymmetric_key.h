// Key pairs as values: RSA with all its numbers, or a curve's scalar and point. Also their published forms.
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

PublicKey publicOf(const PrivateKey& key);
// Throws TokenError unless an RSA key's numbers belong together. Slow, so not part of decoding; a scalar can't but fit its point.
void requireConsistent(const PrivateKey& key);

// X.509's SubjectPublicKeyInfo and PKCS#8's PrivateKeyInfo.
Bytes encodePublicKey(const PublicKey& key);
PublicKey decodePublicKey(ByteView der);
Bytes encodePrivateKey(const PrivateKey& key);
PrivateKey decodePrivateKey(ByteView der);
// The older forms: PKCS#1's RSAPrivateKey and SEC 1's ECPrivateKey.
PrivateKey decodeRsaPrivateKey(ByteView der);
PrivateKey decodeEcPrivateKey(ByteView der);

// As the device library shows public keys: the modulus of an RSA key, the SubjectPublicKeyInfo of one on a curve.
Bytes shownPublicKey(const PublicKey& key);
// What a certificate signs as its key: the content of the SubjectPublicKeyInfo's bit string.
Bytes publicKeyBits(const PublicKey& key);

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
