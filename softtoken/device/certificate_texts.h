#pragma once

#include "base/bytes.h"
#include "token/device_records.h"

namespace quelta::softtoken {

// The texts are, in order: subject, issuer, serial number, begin and end of validity, kind of key, signature's algorithm, SHA-1
// thumbprint. Throws TokenError for anything but a certificate with a key that the token could hold.
CertificateDetails certificateDetails(ByteView der);

} // namespace quelta::softtoken
