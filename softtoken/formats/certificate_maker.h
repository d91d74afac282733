// Makes certificate chains: a root and an issuing authority, whose keys are thrown away, and a leaf for a key of the token.
#pragma once

#include "crypto/asymmetric_key.h"

namespace quelta::softtoken {

struct MadeChain {
    Bytes leaf, issuing, root; // DER
};

// `usage` is the key pair's. The subject is the leaf's, as encodeName takes it; the authorities get names of their own for each
// chain. The leaf is valid for a year, the issuing certificate for two, the root for three.
MadeChain makeChain(const PublicKey& key, std::uint32_t usage, const std::string& subject);

} // namespace quelta::softtoken
