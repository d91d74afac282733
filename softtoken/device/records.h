// The records that callers read, from what the token stores.
#pragma once

#include "store/stored_token.h"

namespace quelta::softtoken {

QueltaKeyPair keyPairRecord(const StoredKeyPair& pair);
QueltaCertificate certificateRecord(const StoredCertificate& certificate);
// Without the key itself.
QueltaSymmetricKey aesKeyRecord(const StoredAesKey& key);

// The texts are, in order: subject, issuer, serial number, begin and end of validity, kind of key, signature's algorithm, SHA-1
// thumbprint. Throws TokenError for anything but a certificate with a key that the token could hold.
CertificateDetails certificateDetails(ByteView der);

} // namespace quelta::softtoken
