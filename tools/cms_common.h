// Object identifiers and the one structure that signed and enveloped messages share.
#pragma once

#include "base/bytes.h"
#include "windows_handles.h"

namespace quelta::cms {

constexpr auto oidData = "1.2.840.113549.1.7.1";
constexpr auto oidSignedData = "1.2.840.113549.1.7.2";
constexpr auto oidEnvelopedData = "1.2.840.113549.1.7.3";
constexpr auto oidContentType = "1.2.840.113549.1.9.3";
constexpr auto oidMessageDigest = "1.2.840.113549.1.9.4";
constexpr auto oidSigningTime = "1.2.840.113549.1.9.5";
constexpr auto oidRsaEncryption = "1.2.840.113549.1.1.1";
constexpr auto oidRsaOaep = "1.2.840.113549.1.1.7";

// IssuerAndSerialNumber of a certificate.
Bytes issuerAndSerial(const CERT_CONTEXT& certificate);

} // namespace quelta::cms
