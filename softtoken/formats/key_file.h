// Reads private keys and certificates from files: PEM, or one key or certificate in DER.
#pragma once

#include "crypto/asymmetric_key.h"

#include <vector>

namespace quelta::softtoken {

struct KeyFile {
    std::vector<PrivateKey> keys;
    std::vector<Bytes> certificates; // DER, in the file's order
};

// Throws TokenError for anything else. For PKCS#12 and encrypted keys the text names the command that converts the file.
KeyFile readKeyFile(ByteView content);

} // namespace quelta::softtoken
