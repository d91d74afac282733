#include "crypto/key_encoding.h"

#include "base/der_reader.h"
#include "base/token_error.h"
#include "common/object_ids.h"

namespace quelta::softtoken {

namespace {

Bytes algorithmIdentifier(const PublicKey& key)
{
    if (const auto* ec = std::get_if<EcPublic>(&key))
        return der::sequence({der::oid(oid::ecPublicKey), der::oid(ec->curve->oid)});
    return der::sequence({der::oid(oid::rsaEncryption), der::null()});
}

// Returns the curve, or null for RSA.
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

Bytes publicKeyBits(const PublicKey& key)
{
    if (const auto* ec = std::get_if<EcPublic>(&key)) return ec->point;
    const auto& rsa = std::get<RsaPublic>(key);
    return der::sequence({der::unsignedInteger(rsa.modulus), der::unsignedInteger(rsa.exponent)});
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
    Bytes inner;
    if (const auto* ec = std::get_if<EcPrivate>(&key)) {
        inner = der::sequence({der::smallInteger(1), der::octetString(ec->scalar),
                               der::element(der::explicitTag(1), der::bitString(ec->shown.point))});
    } else {
        const auto& rsa = std::get<RsaPrivate>(key);
        inner = der::sequence(
            {der::smallInteger(0), der::unsignedInteger(rsa.shown.modulus), der::unsignedInteger(rsa.shown.exponent),
             der::unsignedInteger(rsa.exponent), der::unsignedInteger(rsa.prime1), der::unsignedInteger(rsa.prime2),
             der::unsignedInteger(rsa.exponent1), der::unsignedInteger(rsa.exponent2), der::unsignedInteger(rsa.coefficient)});
    }
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

} // namespace quelta::softtoken
