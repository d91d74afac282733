// Checks a CMS signature. The file is hashed in pieces and each signature checked with the signer's public key: crypt32's own
// check of a detached message would, on some systems, want the whole file in memory.
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
    // As the signer said; nothing vouches for it.
    std::optional<FILETIME> time;
    bool hasTimeStamp;
};

struct CheckedSignature {
    std::vector<Signer> signers;
    // All certificates in the message, DER.
    std::vector<Bytes> certificates;
};

using Digests = std::map<const KnownDigest*, Bytes>;

// Which digests of the content the signers of a message in DER have signed.
std::vector<const KnownDigest*> hashesOf(ByteView signature);
Digests digestsOf(InputFile& file, const std::vector<const KnownDigest*>& hashes);

// `signature` is DER; its own content, if there is any, is not looked at. Throws a Refusal if a signature does not hold, a
// Failure if the message can't be read.
CheckedSignature checkSignature(ByteView signature, const Digests& digests);
CheckedSignature checkSignature(ByteView signature, InputFile& file);
// For a message of any size that has its content within; the content goes to `take` before the signature is known to hold.
CheckedSignature checkAttached(InputFile& message, const std::function<void(ByteView)>& take);

// `signature` as messages have it: of an elliptic key the SEQUENCE of r and s.
bool signatureHolds(const CERT_CONTEXT& certificate, const KnownDigest& hash, ByteView digest, ByteView signature);

} // namespace quelta::tools
