// Makes a certificate chain: a root, an issuing authority and a leaf for a key of the token. The authorities' keys are not kept.
#pragma once

#include "crypto/asymmetric_key.h"

namespace quelta::softtoken {

struct MadeChain {
    Bytes leaf, issuing, root; // DER
};

// `usage` is the key pair's. `subject` names the leaf, in the form that encodeName takes. Each chain's authorities have names of
// their own. The leaf is valid for one year, the issuing certificate for two, the root for three.
MadeChain makeChain(const PublicKey& key, std::uint32_t usage, const std::string& subject);

} // namespace quelta::softtoken
