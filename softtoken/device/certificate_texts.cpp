#include "device/certificate_texts.h"

#include "base/hex.h"
#include "crypto/key_encoding.h"
#include "formats/certificate.h"
#include "formats/distinguished_name.h"

namespace quelta::softtoken {

namespace {

std::string kindOf(const PublicKey& key)
{
    const RsaPublic* rsa = std::get_if<RsaPublic>(&key);
    return rsa != nullptr ? "RSA" : std::string(std::get<EcPublic>(key).curve->name);
}

} // namespace

CertificateDetails certificateDetails(ByteView der)
{
    const CertificateFields fields = readCertificate(der);
    const PublicKey key = decodePublicKey(fields.publicKeyInfo);
    return {{nameText(fields.subject), nameText(fields.issuer), toHex(fields.serial), fields.notBefore, fields.notAfter,
             kindOf(key), fields.signatureOid, thumbprint(der)},
            shownPublicKey(key)};
}

} // namespace quelta::softtoken
