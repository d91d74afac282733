// Makes the records that callers read from the token's state.
#pragma once

#include "store/stored_token.h"

namespace quelta::softtoken {

QueltaKeyPair keyPairRecord(const StoredKeyPair& pair);
QueltaCertificate certificateRecord(const StoredCertificate& certificate);
// The record does not hold the key's value.
QueltaSymmetricKey aesKeyRecord(const StoredAesKey& key);

// The texts are, in this order: subject, issuer, serial number, begin and end of validity, kind of key, signature algorithm,
// SHA-1 thumbprint. Throws TokenError unless `der` is a certificate with a key that the token supports.
CertificateDetails certificateDetails(ByteView der);

} // namespace quelta::softtoken
