#include "crypto/asymmetric_key.h"

#include "base/token_error.h"
#include "crypto/rsa.h"
#include "token/device_records.h"

namespace quelta::softtoken {

namespace {

struct AlgorithmRow {
    std::uint32_t code;
    std::string_view name;
    std::size_t bits;
    bool rsa;
};

constexpr AlgorithmRow algorithms[] = {
    {algorithmRsa1024, "rsa1024", 1024, true}, {algorithmRsa2048, "rsa2048", 2048, true},
    {algorithmRsa3072, "rsa3072", 3072, true}, {algorithmRsa4096, "rsa4096", 4096, true},
    {algorithmP256, "p256", 256, false},       {algorithmP384, "p384", 384, false},
    {algorithmP521, "p521", 521, false},
};

const AlgorithmRow* rowOf(std::uint32_t code)
{
    for (const AlgorithmRow& row : algorithms)
        if (row.code == code) return &row;
    return nullptr;
}

} // namespace

void requireConsistent(const PrivateKey& key)
{
    if (const RsaPrivate* rsa = std::get_if<RsaPrivate>(&key)) requireConsistent(*rsa);
}

std::uint32_t algorithmOf(const PublicKey& key)
{
    if (const EcPublic* ec = std::get_if<EcPublic>(&key)) return ec->curve->algorithm;
    const std::size_t bits = bitsOf(std::get<RsaPublic>(key));
    for (const AlgorithmRow& row : algorithms)
        if (row.rsa && row.bits == bits) return row.code;
    throw TokenError(Result::badData,
                     "an RSA key of " + std::to_string(bits) + " bits: the token holds 1024, 2048, 3072 and 4096");
}

std::string nameOfAlgorithm(std::uint32_t algorithm)
{
    const AlgorithmRow* row = rowOf(algorithm);
    return std::string(row != nullptr ? row->name : "unknown");
}

std::uint32_t algorithmNamed(std::string_view name)
{
    for (const AlgorithmRow& row : algorithms)
        if (row.name == name) return row.code;
    return 0;
}

std::size_t bitsOfAlgorithm(std::uint32_t algorithm)
{
    const AlgorithmRow* row = rowOf(algorithm);
    return row != nullptr ? row->bits : 0;
}

bool isRsaAlgorithm(std::uint32_t algorithm)
{
    const AlgorithmRow* row = rowOf(algorithm);
    return row != nullptr && row->rsa;
}

PrivateKey generateKey(std::uint32_t algorithm)
{
    if (const Curve* curve = curveOfAlgorithm(algorithm)) {
        const Bytes scalar = newScalar(*curve);
        return EcPrivate{{curve, pointOfScalar(*curve, scalar)}, scalar};
    }
    if (!isRsaAlgorithm(algorithm)) throw TokenError(Result::badArgument, "no such kind of key: " + std::to_string(algorithm));
    return generateRsaKey(bitsOfAlgorithm(algorithm));
}

Bytes signDigest(const PrivateKey& key, ByteView digest)
{
    if (const RsaPrivate* rsa = std::get_if<RsaPrivate>(&key)) return rsaSign(*rsa, digest);
    const auto& ec = std::get<EcPrivate>(key);
    return ecdsaSign(*ec.shown.curve, ec.scalar, digest);
}

bool verifyDigest(const PublicKey& key, ByteView digest, ByteView signature)
{
    if (const RsaPublic* rsa = std::get_if<RsaPublic>(&key)) return rsaVerify(*rsa, digest, signature);
    const auto& ec = std::get<EcPublic>(key);
    return ecdsaVerify(*ec.curve, ec.point, digest, signature);
}

} // namespace quelta::softtoken
