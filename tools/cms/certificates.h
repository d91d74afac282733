// Certificates: read from files, described, compared, and the kind of key in them.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "common/der_reader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

// Calls a function of Windows twice, for the size and for the value: call(nullptr, &size), call(value, &size), each true if all
// is well. Empty, with the function's last error, if it is not.
template <class Call>
Bytes fetched(Call call)
{
    DWORD size = 0;
    if (!call(nullptr, &size)) return {};
    Bytes value(size);
    if (!call(value.data(), &size)) return {};
    value.resize(std::min<std::size_t>(size, value.size()));
    return value;
}

ByteView viewOf(const CRYPT_DATA_BLOB& blob);
CRYPT_DATA_BLOB blobOf(ByteView bytes);
ByteView encodedOf(const CERT_CONTEXT& certificate);

// Empty if the bytes are no certificate.
CertificateContext parseCertificate(ByteView der);

// All certificates of a PEM or DER file, at least one, or a Failure.
std::vector<CertificateContext> readCertificates(const std::filesystem::path& path);

// The bytes of PEM text's first block; bytes that are no PEM come back unchanged.
Bytes withoutPem(Bytes content);

// The holder's name alone, as a list shows it.
std::string displayNameOf(const CERT_CONTEXT& certificate);
std::string displayIssuerOf(const CERT_CONTEXT& certificate);
std::string subjectOf(const CERT_CONTEXT& certificate);
std::string issuerOf(const CERT_CONTEXT& certificate);
std::string serialOf(const CERT_CONTEXT& certificate);
// The INTEGER's content, byte for byte as the certificate has it.
ByteView serialContent(const CERT_CONTEXT& certificate);

// "valid", "expired" or "not yet valid".
std::string validityAt(const CERT_CONTEXT& certificate, const FILETIME& time);
// "expired on 2026-11-25 10:00:00 UTC"; empty for a certificate that is valid at this time.
std::string validityFault(const CERT_CONTEXT& certificate, const FILETIME& time);
// A certificate that says nothing of key usage may do everything. `usage` has bits of CERT_DIGITAL_SIGNATURE_KEY_USAGE and such,
// any of which will do.
bool mayBeUsedFor(const CERT_CONTEXT& certificate, BYTE usage);

constexpr BYTE signatureUsage = CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_NON_REPUDIATION_KEY_USAGE;
constexpr BYTE encryptionUsage = CERT_KEY_ENCIPHERMENT_KEY_USAGE | CERT_DATA_ENCIPHERMENT_KEY_USAGE;

// IssuerAndSerialNumber, as a message names a certificate.
Bytes issuerAndSerial(const CERT_CONTEXT& certificate);
// Whether a message means the certificate: by that, or by the key identifier under the tag [0].
bool isNamedBy(const CERT_CONTEXT& certificate, const der::Element& name);

// Empty if it has no such property.
Bytes propertyOf(const CERT_CONTEXT& certificate, DWORD property);
bool isSelfIssued(const CERT_CONTEXT& certificate);

struct PublicKeyKind {
    bool elliptic;
    // Bytes of a coordinate; 0 for RSA.
    std::size_t coordinateSize;
    unsigned bits;
};
// "RSA", or the curve as in "P-256".
std::string nameOf(const PublicKeyKind& kind);
// Nothing for a key that is neither RSA nor on P-256, P-384 or P-521.
std::optional<PublicKeyKind> publicKeyKind(const CERT_CONTEXT& certificate);
bool holdsRsaKey(const CERT_CONTEXT& certificate);

} // namespace quelta::tools
