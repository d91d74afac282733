// CMS SignedData (RFC 5652), put together and taken apart by hand: the file is hashed here and the token signs the attributes
// alone, whatever kind of key it is.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "common/bcrypt_calls.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace quelta::tools {

// The signed attributes of a signature over content with this digest, as the SET OF whose bytes are signed.
// signing-certificate-v2 (RFC 5035) is among them, which ties the signature to the signer's certificate.
Bytes signedAttributes(ByteView contentDigest, const CERT_CONTEXT& signer);

// A whole message in its parts, DER each.
struct SignedData {
    Bytes version;
    std::vector<Bytes> digestAlgorithms;
    // The content's type, and the content unless it is kept elsewhere.
    Bytes content;
    std::vector<Bytes> certificates;
    std::vector<Bytes> revocationLists;
    std::vector<Bytes> signerInfos;

    // Adds a signature, and the certificates that are not there yet. `attributes` are those that signedAttributes() gave; `value`
    // is big-endian for RSA, the SEQUENCE of r and s for ECDSA.
    void add(const KnownDigest& hash, const CERT_CONTEXT& signer, const Bytes& attributes, ByteView value,
             const std::vector<Bytes>& certificates);
    SignedData withoutContent() const;
    // The ContentInfo.
    Bytes encoded() const;
};

// Without signers, its content kept elsewhere.
SignedData emptySignedData();
// Of a ContentInfo in DER; nothing if it is none of SignedData.
std::optional<SignedData> parseSignedData(ByteView message);

// A message of at most 1 MB, DER, BER or PEM, in DER's form.
Bytes readMessage(const std::filesystem::path& path);

// Content of a length that nobody knows beforehand stands between these two, each piece an OCTET STRING: BER without lengths
// outside.
Bytes headOfAttached(const KnownDigest& hash);
Bytes tailOfAttached(const SignedData& message);

} // namespace quelta::tools
