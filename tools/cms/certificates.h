// Certificates: read from files, described, compared, and the kind of key in them.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

ByteView viewOf(const CRYPT_DATA_BLOB& blob);
CRYPT_DATA_BLOB blobOf(ByteView bytes);
ByteView encodedOf(const CERT_CONTEXT& certificate);

// Empty if the bytes are no certificate.
CertificateContext parseCertificate(ByteView der);

// All certificates of a PEM or DER file, at least one, or a Failure.
std::vector<CertificateContext> readCertificates(const std::filesystem::path& path);

// PEM text to its bytes; bytes that are no PEM come back unchanged.
Bytes withoutPem(Bytes content);
// As PEM has them: 64 characters in a line, each with a line feed.
std::string base64Lines(ByteView bytes);

// The holder's name alone, as a list shows it.
std::string displayNameOf(const CERT_CONTEXT& certificate);
std::string displayIssuerOf(const CERT_CONTEXT& certificate);
std::string subjectOf(const CERT_CONTEXT& certificate);
std::string issuerOf(const CERT_CONTEXT& certificate);
std::string serialOf(const CERT_CONTEXT& certificate);
// The INTEGER's content, byte for byte as the certificate has it.
ByteView serialContent(const CERT_CONTEXT& certificate);

// IssuerAndSerialNumber, as a message names a certificate.
Bytes issuerAndSerial(const CERT_CONTEXT& certificate);

// The certificate and its issuers, DER, as far as this system's own stores know them; nothing is fetched.
std::vector<Bytes> chainFromSystem(const CERT_CONTEXT& certificate);

// The identifier that messages may name the certificate by in place of issuer and serial number.
Bytes keyIdentifierOf(const CERT_CONTEXT& certificate);
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
