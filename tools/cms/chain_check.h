// Builds a certificate's chain and checks it for a time. Nothing is fetched from a network.
#pragma once

#include "tools/cms/verify.h"

#include <string>
#include <vector>

namespace quelta::tools {

// The roots that the user names. If there are none, Windows' trusted roots count.
using Roots = std::vector<CertificateContext>;

struct ChainEnd {
    // Whether Windows trusts the root. True if roots were named: the chain then ends in one of them.
    bool trusted;
    // The name of the chain's last certificate.
    std::string name;
    // The name of the missing issuer; empty if the chain leads to a root.
    std::string missingIssuer;
};

// Builds the chain from the message's certificates. Throws a Refusal if the signer's certificate may not sign, if the chain is
// not valid at this time, or if it ends in none of the named roots. A root that Windows does not know is no fault.
ChainEnd checkChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, const FILETIME& at);

// Builds the chain from these certificates (DER) and those that the system knows. Reports no faults.
ChainEnd describeChain(const CERT_CONTEXT& holder, const std::vector<Bytes>& known);

// Returns the certificate and its issuers (DER), as far as this system's stores have them.
std::vector<Bytes> chainFromSystem(const CERT_CONTEXT& certificate);

} // namespace quelta::tools
