// Makes certificate chains: a root and an issuing authority, whose keys are thrown away, and a leaf for a key of the token.
#pragma once

#include "crypto/asymmetric_key.h"

#include <string>

namespace quelta::softtoken {

struct ChainRequest {
    PublicKey key;
    std::uint32_t usage;
    std::string subject; // as encodeName takes them
    std::string issuer;
    std::string root;
    int days; // of the leaf; its issuer's certificate outlives it by a year, the root's by two
};

struct Chain {
    Bytes leaf, issuing, root; // DER
};

Chain makeChain(const ChainRequest& request);

} // namespace quelta::softtoken
