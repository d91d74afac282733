#include "crypto/asymmetric_key.h"

#include "base/der_reader.h"
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

template <class... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};

Bytes algorithmIdentifier(const PublicKey& key)
{
    return std::visit(Overloaded{[](const RsaPublic&) {
                                     return der::sequence({der::oid(oid::rsaEncryption), der::null()});
                                 },
                                 [](const EcPublic& ec) {
                                     return der::sequence({der::oid(oid::ecPublicKey), der::oid(ec.curve->oid)});
                                 }},
                      key);
}

// Null for RSA.
const Curve* readAlgorithm(DerReader algorithm)
{
    const std::string oid = algorithm.objectId();
    if (oid == oid::rsaEncryption) return nullptr;
    if (oid != oid::ecPublicKey)
        throw TokenError(Result::badData, "a key of a kind that this token does not know: use RSA or EC");
    if (!algorithm.nextIs(der::tagOid))
        throw TokenError(Result::badData, "an EC key without a named curve: use P-256, P-384 or P-521");
    const Curve* curve = curveOfOid(algorithm.objectId());
    if (curve == nullptr) throw TokenError(Result::badData, "an EC key on another curve: use P-256, P-384 or P-521");
    return curve;
}

EcPublic requirePoint(const Curve& curve, ByteView point)
{
    if (!isPointOnCurve(curve, point))
        throw TokenError(Result::badData, "an EC key's point is not on its curve, or is compressed");
    return {&curve, toBytes(point)};
}

PrivateKey ecPrivateKey(DerReader fields, const Curve* curve)
{
    fields.smallInteger();
    const ByteView scalar = fields.content(der::tagOctetString);
    if (fields.nextIs(der::explicitTag(0))) curve = curveOfOid(fields.enter(der::explicitTag(0)).objectId());
    if (curve == nullptr) throw TokenError(Result::badData, "an EC key without a known curve: use P-256, P-384 or P-521");
    return EcPrivate{{curve, pointOfScalar(*curve, scalar)}, toBytes(scalar)};
}

} // namespace

PublicKey publicOf(const PrivateKey& key)
{
    return std::visit([](const auto& pair) -> PublicKey { return pair.shown; }, key);
}

Bytes publicKeyBits(const PublicKey& key)
{
    return std::visit(
        Overloaded{[](const RsaPublic& rsa) {
                       return der::sequence({der::unsignedInteger(rsa.modulus), der::unsignedInteger(rsa.exponent)});
                   },
                   [](const EcPublic& ec) { return ec.point; }},
        key);
}

Bytes encodePublicKey(const PublicKey& key)
{
    return der::sequence({algorithmIdentifier(key), der::bitString(publicKeyBits(key))});
}

PublicKey decodePublicKey(ByteView der)
{
    DerReader info = DerReader(der).enter(der::tagSequence);
    const Curve* curve = readAlgorithm(info.enter(der::tagSequence));
    const ByteView bits = info.bitString();
    if (curve != nullptr) return requirePoint(*curve, bits);
    DerReader numbers = DerReader(bits).enter(der::tagSequence);
    Bytes modulus = numbers.integer();
    return RsaPublic{std::move(modulus), numbers.integer()};
}

Bytes encodePrivateKey(const PrivateKey& key)
{
    const Bytes inner = std::visit(
        Overloaded{[](const RsaPrivate& rsa) {
                       return der::sequence({der::smallInteger(0), der::unsignedInteger(rsa.shown.modulus),
                                             der::unsignedInteger(rsa.shown.exponent), der::unsignedInteger(rsa.exponent),
                                             der::unsignedInteger(rsa.prime1), der::unsignedInteger(rsa.prime2),
                                             der::unsignedInteger(rsa.exponent1), der::unsignedInteger(rsa.exponent2),
                                             der::unsignedInteger(rsa.coefficient)});
                   },
                   [](const EcPrivate& ec) {
                       return der::sequence({der::smallInteger(1), der::octetString(ec.scalar),
                                             der::element(der::explicitTag(1), der::bitString(ec.shown.point))});
                   }},
        key);
    return der::sequence({der::smallInteger(0), algorithmIdentifier(publicOf(key)), der::octetString(inner)});
}

PrivateKey decodePrivateKey(ByteView der)
{
    DerReader info = DerReader(der).enter(der::tagSequence);
    info.smallInteger();
    const Curve* curve = readAlgorithm(info.enter(der::tagSequence));
    const ByteView inner = info.content(der::tagOctetString);
    if (curve == nullptr) return decodeRsaPrivateKey(inner);
    return ecPrivateKey(DerReader(inner).enter(der::tagSequence), curve);
}

PrivateKey decodeRsaPrivateKey(ByteView der)
{
    DerReader numbers = DerReader(der).enter(der::tagSequence);
    if (numbers.smallInteger() != 0) throw TokenError(Result::badData, "an RSA key with more than two primes");
    RsaPrivate key;
    for (Bytes* field : {&key.shown.modulus, &key.shown.exponent, &key.exponent, &key.prime1, &key.prime2, &key.exponent1,
                         &key.exponent2, &key.coefficient})
        *field = numbers.integer();
    return key;
}

PrivateKey decodeEcPrivateKey(ByteView der)
{
    return ecPrivateKey(DerReader(der).enter(der::tagSequence), nullptr);
}

Bytes shownPublicKey(const PublicKey& key)
{
    const RsaPublic* rsa = std::get_if<RsaPublic>(&key);
    return rsa != nullptr ? rsa->modulus : encodePublicKey(key);
}

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
    return std::visit(Overloaded{[&](const RsaPrivate& rsa) { return rsaSign(rsa, digest); },
                                 [&](const EcPrivate& ec) { return ecdsaSign(*ec.shown.curve, ec.scalar, digest); }},
                      key);
}

bool verifyDigest(const PublicKey& key, ByteView digest, ByteView signature)
{
    return std::visit(Overloaded{[&](const RsaPublic& rsa) { return rsaVerify(rsa, digest, signature); },
                                 [&](const EcPublic& ec) { return ecdsaVerify(*ec.curve, ec.point, digest, signature); }},
                      key);
}

} // namespace quelta::softtoken
