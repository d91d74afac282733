#include "cms_signed_data.h"

#include "base/der.h"
#include "base/object_ids.h"
#include "certificates.h"
#include "failure.h"

#include <algorithm>

namespace quelta::tools {

namespace {

Bytes attribute(std::string_view type, ByteView value)
{
    return der::sequence({der::oid(type), der::setOf({toBytes(value)})});
}

Bytes signatureAlgorithm(const Signature& signature)
{
    if (holdsRsaKey(*signature.signer)) return der::sequence({der::oid(oid::rsaEncryption), der::null()});
    return der::sequence({der::oid(signature.hash->ecdsaOid)});
}

Bytes signerInfo(const Signature& signature)
{
    // The attributes are signed as a SET OF and sent under the tag [0].
    Bytes attributes = signature.attributes;
    attributes.at(0) = der::explicitTag(0);
    return der::sequence({der::smallInteger(1), issuerAndSerial(*signature.signer),
                          der::sequence({der::oid(signature.hash->oid)}), attributes, signatureAlgorithm(signature),
                          der::octetString(signature.value)});
}

} // namespace

Bytes signingTimeNow()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    Bytes encoded(64);
    auto size = static_cast<DWORD>(encoded.size());
    if (!CryptEncodeObject(X509_ASN_ENCODING, X509_CHOICE_OF_TIME, &now, encoded.data(), &size))
        failWithLastError("can't encode the time");
    encoded.resize(size);
    return encoded;
}

Bytes signedAttributes(ByteView contentDigest)
{
    return der::setOf({attribute(oid::contentType, der::oid(oid::data)), attribute(oid::signingTime, signingTimeNow()),
                       attribute(oid::messageDigest, der::octetString(contentDigest))});
}

Bytes detachedSignedData(const Signature& signature, const std::vector<Bytes>& certificates)
{
    const Bytes content = der::sequence({der::smallInteger(1), der::setOf({der::sequence({der::oid(signature.hash->oid)})}),
                                         der::sequence({der::oid(oid::data)}), der::setOf(certificates, der::explicitTag(0)),
                                         der::setOf({signerInfo(signature)})});
    return der::sequence({der::oid(oid::signedData), der::element(der::explicitTag(0), content)});
}

} // namespace quelta::tools
