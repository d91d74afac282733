// Checks a detached CMS signature. The file is hashed in pieces and each signature checked with the signer's public key:
// crypt32's own check of a detached message would, on some systems, want the whole file in memory.
#pragma once

#include "base/windows_objects.h"
#include "files.h"

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

// `signature` is DER. Throws a Refusal if a signature does not hold, a Failure if the message can't be read.
CheckedSignature checkSignature(ByteView signature, InputFile& file);

// Throws a Refusal unless the signer's certificate leads, through the message's certificates, to one of the roots.
// Returns the root it leads to.
const CERT_CONTEXT& checkChain(const Signer& signer, const CheckedSignature& checked,
                               const std::vector<CertificateContext>& roots);

} // namespace quelta::tools
