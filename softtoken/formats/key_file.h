// Private keys and certificates out of files: PEM, PKCS#12 (RFC 7292), and single keys or certificates in DER.
#pragma once

#include "crypto/asymmetric_key.h"

#include <optional>
#include <string>
#include <vector>

namespace quelta::softtoken {

struct KeyOfFile {
    PrivateKey key;
    std::string label; // empty if the file gives none
};

struct KeyFile {
    std::vector<KeyOfFile> keys;
    std::vector<Bytes> certificates; // DER, in the file's order
};

// Without a password where one is needed, or with a wrong one, throws TokenError with the option to use.
KeyFile readKeyFile(ByteView content, const std::optional<std::string>& password);

std::string pemOf(std::string_view kind, ByteView der);

} // namespace quelta::softtoken
