// Checks a CMS signature. The file is hashed in pieces, and each signature is checked with the signer's public key. crypt32's
// check of a detached message needs the whole file in memory on some systems.
#pragma once

#include "common/bcrypt_calls.h"
#include "tools/console/files.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

struct Signer {
    CertificateContext certificate;
    std::string hashName;
    // The time that the signer claims.
    std::optional<FILETIME> time;
    bool hasTimeStamp;
};

struct CheckedSignature {
    std::vector<Signer> signers;
    // All certificates in the message (DER).
    std::vector<Bytes> certificates;
};

using Digests = std::map<const KnownDigest*, Bytes>;

// Returns the digests that the signers of a message (DER) used for the content.
std::vector<const KnownDigest*> hashesOf(ByteView signature);
Digests digestsOf(InputFile& file, const std::vector<const KnownDigest*>& hashes);

// Checks a message (DER) against `file` and ignores a content within it. Throws a Refusal if a signature is not valid, a Failure
// if the message can't be read.
CheckedSignature checkSignature(ByteView signature, const Digests& digests);
CheckedSignature checkSignature(ByteView signature, InputFile& file);
// Checks a message of any size with its content within. Hands the content to `take` before the signature was checked.
CheckedSignature checkAttached(InputFile& message, const std::function<void(ByteView)>& take);

// `signature` has the form of messages: for an EC key the SEQUENCE of r and s.
bool signatureHolds(const CERT_CONTEXT& certificate, const KnownDigest& hash, ByteView digest, ByteView signature);

} // namespace quelta::tools
