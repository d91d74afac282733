// Checks a CMS signature. The file is hashed in pieces and each signature checked with the signer's public key: crypt32's own
// check of a detached message would, on some systems, want the whole file in memory.
#pragma once

#include "base/windows_objects.h"
#include "digest.h"
#include "files.h"
#include "text.h"

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

// Throws a Refusal unless the signer's certificate may sign and leads, through the message's certificates, to one of the roots,
// at this time. Returns the root it leads to.
const CERT_CONTEXT& checkChain(const Signer& signer, const CheckedSignature& checked,
                               const std::vector<CertificateContext>& roots, FILETIME at = timeNow());

struct SystemChain {
    // Whether Windows trusts the root.
    bool trusted;
    // The last certificate of the chain.
    std::string end;
};
// The same with the roots that Windows trusts. That it does not know the root is no fault.
SystemChain checkSystemChain(const Signer& signer, const CheckedSignature& checked, FILETIME at);

// The same, and faults are not told of.
SystemChain describeChain(const Signer& signer, const CheckedSignature& checked, FILETIME at);

// `signature` as messages have it: of an elliptic key the SEQUENCE of r and s.
bool signatureHolds(const CERT_CONTEXT& certificate, const KnownDigest& hash, ByteView digest, ByteView signature);

} // namespace quelta::tools
