// Where the chain of a signature's signer leads, and whether it holds at a time.
#pragma once

#include "tools/cms/verify.h"

#include <string>
#include <vector>

namespace quelta::tools {

// Those that the user names; none stands for those that Windows trusts.
using Roots = std::vector<CertificateContext>;

enum class ChainPurpose { signatures, timeStamps };

struct ChainEnd {
    // Whether Windows trusts it. With named roots it always is one of them.
    bool trusted;
    // The last certificate of the chain.
    std::string name;
};

// Through the message's certificates. Throws a Refusal if the signer's certificate may not sign, the chain does not hold at this
// time, or ends in none of the named roots. That Windows does not know the root is no fault.
ChainEnd checkChain(const Signer& signer, const CheckedSignature& checked, const Roots& roots, FILETIME at,
                    ChainPurpose purpose = ChainPurpose::signatures);

// The same with the roots that Windows trusts, and faults are not told of.
ChainEnd describeChain(const Signer& signer, const CheckedSignature& checked, FILETIME at);

} // namespace quelta::tools
