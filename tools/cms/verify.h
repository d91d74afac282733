// Checks a CMS signature. The file is hashed in pieces and each signature checked with the signer's public key: crypt32's own
// check of a detached message would, on some systems, want the whole file in memory.
#pragma once

#include "base/windows_objects.h"
#include "tools/cms/digest.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

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
    // The signature's value, as the message has it, and the time stamp tokens beside it, whatever is in them.
    Bytes value = {};
    std::vector<Bytes> timeStamps = {};
};

struct CheckedSignature {
    std::vector<Signer> signers;
    // All certificates in the message.
    CertificateStore certificates;
};

using Digests = std::map<const KnownDigest*, Bytes>;

// Which digests of the content the signers of a message in DER have signed.
std::vector<const KnownDigest*> hashesOf(ByteView signature);
Digests digestsOf(InputFile& file, const std::vector<const KnownDigest*>& hashes, const std::string& verb);

// `signature` is DER, without its content. Throws a Refusal if a signature does not hold, a Failure if the message can't be read.
CheckedSignature checkSignature(ByteView signature, const Digests& digests);
CheckedSignature checkSignature(ByteView signature, InputFile& file);
// Of a message with its content, DER or PEM, of any size; the content goes to `take` before the signature is known to hold.
CheckedSignature checkAttached(InputFile& message, const std::function<void(ByteView)>& take);

// Of a UTCTime or a GeneralizedTime.
std::optional<FILETIME> decodedTime(ByteView encoded);

// `signature` as messages have it: of an elliptic key the SEQUENCE of r and s.
bool signatureHolds(const CERT_CONTEXT& certificate, const KnownDigest& hash, ByteView digest, ByteView signature);

} // namespace quelta::tools
