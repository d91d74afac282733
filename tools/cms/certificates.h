// Reads, describes and compares certificates, and tells the kind of their key.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "common/der_reader.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

// Calls a function of Windows twice: call(nullptr, &size) for the size, call(value, &size) for the value. Each must return true.
// Returns empty, with the function's last error, if one fails.
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

// Returns null if the bytes are no certificate.
CertificateContext parseCertificate(ByteView der);

// Returns the certificates of a PEM or DER file. Throws a Failure if there is none.
std::vector<CertificateContext> readCertificates(const std::filesystem::path& path);

// Returns the content of the first PEM block. Other bytes are returned unchanged.
Bytes withoutPem(Bytes content);

// Returns the holder's name as a list shows it.
std::string displayNameOf(const CERT_CONTEXT& certificate);
std::string displayIssuerOf(const CERT_CONTEXT& certificate);
std::string subjectOf(const CERT_CONTEXT& certificate);
std::string issuerOf(const CERT_CONTEXT& certificate);
std::string serialOf(const CERT_CONTEXT& certificate);
// Returns the content of the INTEGER as the certificate has it.
ByteView serialContent(const CERT_CONTEXT& certificate);

// Returns "valid", "expired" or "not yet valid".
std::string validityAt(const CERT_CONTEXT& certificate, const FILETIME& time);
// Returns a text like "expired on 2026-11-25 10:00:00 UTC"; empty if the certificate is valid at this time.
std::string validityFault(const CERT_CONTEXT& certificate, const FILETIME& time);
// Returns whether the certificate allows one of the uses in `usage` (CERT_DIGITAL_SIGNATURE_KEY_USAGE and such). A certificate
// without key usage allows all.
bool mayBeUsedFor(const CERT_CONTEXT& certificate, BYTE usage);

constexpr BYTE signatureUsage = CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_NON_REPUDIATION_KEY_USAGE;
constexpr BYTE encryptionUsage = CERT_KEY_ENCIPHERMENT_KEY_USAGE | CERT_DATA_ENCIPHERMENT_KEY_USAGE;

// Returns IssuerAndSerialNumber, by which a message names a certificate.
Bytes issuerAndSerial(const CERT_CONTEXT& certificate);
// Returns whether `identifier` means the certificate: IssuerAndSerialNumber, or the key identifier under the tag [0].
bool isNamedBy(const CERT_CONTEXT& certificate, const der::Element& name);

// Returns the property; empty if the certificate has none.
Bytes propertyOf(const CERT_CONTEXT& certificate, DWORD property);
bool isSelfIssued(const CERT_CONTEXT& certificate);

struct PublicKeyKind {
    bool elliptic;
    // Size of a coordinate in bytes; 0 for RSA.
    std::size_t coordinateSize;
    unsigned bits;
};
// Returns "RSA", or the curve as in "P-256".
std::string nameOf(const PublicKeyKind& kind);
// Returns nullopt for a key that is neither RSA nor on P-256, P-384 or P-521.
std::optional<PublicKeyKind> publicKeyKind(const CERT_CONTEXT& certificate);
bool holdsRsaKey(const CERT_CONTEXT& certificate);

} // namespace quelta::tools
