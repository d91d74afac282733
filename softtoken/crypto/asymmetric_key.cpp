#include "crypto/asymmetric_key.h"

#include "base/table.h"
#include "base/token_error.h"
#include "crypto/rsa.h"
#include "token/device_records.h"

namespace quelta::softtoken {

namespace {

constexpr KeyAlgorithm algorithms[] = {
    {algorithmRsa1024, "rsa1024", 1024, true}, {algorithmRsa2048, "rsa2048", 2048, true},
    {algorithmRsa3072, "rsa3072", 3072, true}, {algorithmRsa4096, "rsa4096", 4096, true},
    {algorithmP256, "p256", 256, false},       {algorithmP384, "p384", 384, false},
    {algorithmP521, "p521", 521, false},
};

} // namespace

std::uint32_t algorithmOf(const PublicKey& key)
{
    if (const EcPublic* ec = std::get_if<EcPublic>(&key)) return ec->curve->algorithm;
    const std::size_t bits = bitsOf(std::get<RsaPublic>(key));
    const KeyAlgorithm* found = findRow(algorithms, &KeyAlgorithm::bits, bits);
    if (found != nullptr && found->rsa) return found->code;
    throw TokenError(Result::badData,
                     "an RSA key of " + std::to_string(bits) + " bits: the token holds 1024, 2048, 3072 and 4096");
}

const KeyAlgorithm* keyAlgorithm(std::uint32_t code)
{
    return findRow(algorithms, &KeyAlgorithm::code, code);
}

const KeyAlgorithm* keyAlgorithmNamed(std::string_view name)
{
    return findRow(algorithms, &KeyAlgorithm::name, name);
}

PrivateKey generateKey(std::uint32_t algorithm)
{
    if (const Curve* curve = curveOfAlgorithm(algorithm)) {
        const Bytes scalar = newScalar(*curve);
        return EcPrivate{{curve, pointOfScalar(*curve, scalar)}, scalar};
    }
    const KeyAlgorithm* rsa = keyAlgorithm(algorithm);
    if (rsa == nullptr || !rsa->rsa) throw TokenError(Result::badArgument, "no such kind of key: " + std::to_string(algorithm));
    return generateRsaKey(rsa->bits);
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
