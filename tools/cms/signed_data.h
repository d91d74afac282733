// Writes and reads CMS SignedData (RFC 5652). crypt32 is not used: the file is hashed here, and the token signs only the
// attributes, with any kind of key.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "common/bcrypt_calls.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace quelta::tools {

// Returns the signed attributes for a content with this digest, as the SET OF whose bytes are signed. signing-certificate-v2
// (RFC 5035) ties the signature to the signer's certificate.
Bytes signedAttributes(ByteView contentDigest, const CERT_CONTEXT& signer);

// A message in its parts (DER).
struct SignedData {
    Bytes version;
    std::vector<Bytes> digestAlgorithms;
    // The content's type, and the content unless the message is detached.
    Bytes content;
    std::vector<Bytes> certificates;
    std::vector<Bytes> revocationLists;
    std::vector<Bytes> signerInfos;

    // Adds a signature, and those certificates that the message lacks. `attributes` come from signedAttributes(). `value` is
    // big-endian for RSA, the SEQUENCE of r and s for ECDSA.
    void add(const KnownDigest& hash, const CERT_CONTEXT& signer, const Bytes& attributes, ByteView value,
             const std::vector<Bytes>& certificates);
    SignedData withoutContent() const;
    // Returns the ContentInfo.
    Bytes encoded() const;
};

// Returns a detached message without signers.
SignedData emptySignedData();
// Parses a ContentInfo in DER. Returns nullopt if it is no SignedData.
std::optional<SignedData> parseSignedData(ByteView message);

// Reads a message of at most 1 MB in DER, BER or PEM, and returns it in DER.
Bytes readMessage(const std::filesystem::path& path);

// Head and end of a message whose content has an unknown length: BER of indefinite length. Each piece of the content is an OCTET
// STRING.
Bytes headOfAttached(const KnownDigest& hash);
Bytes tailOfAttached(const SignedData& message);

} // namespace quelta::tools
