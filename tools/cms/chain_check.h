// Where the chain of a certificate leads, and whether it holds at a time. Nothing is fetched.
#pragma once

#include "tools/cms/verify.h"

#include <string>
#include <vector>

namespace quelta::tools {

// Those that the user names; none stands for those that Windows trusts.
using Roots = std::vector<CertificateContext>;

struct ChainEnd {
    // Whether Windows trusts it. With named roots it always is one of them.
    bool trusted;
    // The last certificate of the chain.
    std::string name;
    // The issuer that nobody knows; empty if the chain leads to a root.
    std::string missingIssuer;
};

// Through the message's certificates. Throws a Refusal if the signer's certificate may not sign, the chain does not hold at this
// time, or ends in none of the named roots. That Windows does not know the root is no fault.
ChainEnd checkChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, const FILETIME& at);

// Through these certificates, DER, and those that the system knows; faults are not told of.
ChainEnd describeChain(const CERT_CONTEXT& holder, const std::vector<Bytes>& known);

// The certificate and its issuers, DER, as far as this system's own stores know them.
std::vector<Bytes> chainFromSystem(const CERT_CONTEXT& certificate);

} // namespace quelta::tools
