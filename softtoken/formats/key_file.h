// Private keys and certificates out of files: PEM, and single keys or certificates in DER.
#pragma once

#include "crypto/asymmetric_key.h"

#include <vector>

namespace quelta::softtoken {

struct KeyFile {
    std::vector<PrivateKey> keys;
    std::vector<Bytes> certificates; // DER, in the file's order
};

// Throws TokenError for anything else; for PKCS#12 and encrypted keys, with the command that converts them.
KeyFile readKeyFile(ByteView content);

} // namespace quelta::softtoken
