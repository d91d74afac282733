// The fields of an X.509 certificate (RFC 5280) that the token reads.
#pragma once

#include "base/bytes.h"

#include <string>

namespace quelta::softtoken {

struct CertificateFields {
    Bytes serial;
    Bytes issuer;          // DER
    Bytes subject;         // DER
    std::string notBefore; // "2031-05-17 08:00:00 UTC"
    std::string notAfter;
    Bytes publicKeyInfo; // DER
    std::string signatureOid;
};

// Throws TokenError if `der` is no certificate, or if bytes follow it.
CertificateFields readCertificate(ByteView der);

} // namespace quelta::softtoken
