#include "device/records.h"

#include "base/hex.h"
#include "common/bcrypt_calls.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "formats/certificate.h"
#include "formats/distinguished_name.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

// Leaves out a value that does not fit and sets its length to 0. A caller must never meet a truncated key or certificate.
template <std::size_t size>
std::int32_t put(unsigned char (&field)[size], ByteView bytes)
{
    if (bytes.size() > size) return 0;
    std::ranges::copy(bytes, field);
    return static_cast<std::int32_t>(bytes.size());
}

template <std::size_t size>
void putText(char (&field)[size], const std::string& text)
{
    std::copy_n(text.begin(), std::min(text.size(), size - 1), field);
}

std::string kindOf(const PublicKey& key)
{
    return std::holds_alternative<RsaPublic>(key) ? "RSA" : std::string(std::get<EcPublic>(key).curve->name);
}

} // namespace

QueltaKeyPair keyPairRecord(const StoredKeyPair& pair)
{
    QueltaKeyPair record{};
    put(record.keyId, pair.id);
    record.publicKeyLength = put(record.publicKey, pair.publicKey);
    record.keyReferenceLength = put(record.keyReference, pair.reference);
    putText(record.label, pair.label);
    record.usage = pair.usage;
    record.algorithm = pair.algorithm;
    record.hardware = 1;
    return record;
}

QueltaCertificate certificateRecord(const StoredCertificate& certificate)
{
    QueltaCertificate record{};
    put(record.keyId, certificate.keyId);
    record.certificateLength = put(record.certificate, certificate.der);
    record.keyReferenceLength = put(record.keyReference, certificate.reference);
    putText(record.label, certificate.label);
    return record;
}

QueltaSymmetricKey aesKeyRecord(const StoredAesKey& key)
{
    QueltaSymmetricKey record{};
    put(record.keyId, key.id);
    record.keyReferenceLength = put(record.keyReference, key.reference);
    putText(record.label, key.label);
    record.usage = key.usage;
    record.encryptionType = key.encryptionType;
    record.flag = 1;
    return record;
}

CertificateDetails certificateDetails(ByteView der)
{
    const CertificateFields fields = readCertificate(der);
    const PublicKey key = decodePublicKey(fields.publicKeyInfo);
    return {{nameText(fields.subject), nameText(fields.issuer), toHex(fields.serial), fields.notBefore, fields.notAfter,
             kindOf(key), fields.signatureOid, toHex(digestOf(sha1, der))},
            shownPublicKey(key)};
}

} // namespace quelta::softtoken
