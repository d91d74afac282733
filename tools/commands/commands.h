// The commands that use a key on files, each from its options to what it has to say.
#pragma once

#include "tools/console/answer.h"
#include "tools/console/pin.h"
#include "tools/token/token_provider.h"

#include <optional>
#include <string>
#include <vector>

namespace quelta::tools {

struct TokenOptions {
    // Without it CryptoAPI, and key storage for what CryptoAPI can't do.
    std::optional<Interface> provider = {};
    std::string key = {};
    PinSource pin = {};
};

struct SignOptions {
    TokenOptions token = {};
    std::vector<std::string> files = {};
    std::string output = {};
    std::string hash = "sha256";
    bool pem = false;
    bool attached = false;
    bool add = false;
    bool force = false;
};

struct EncryptOptions {
    TokenOptions token = {};
    std::string file = {};
    std::string output = {};
    std::string certificate = {};
    bool pem = false;
};

struct DecryptOptions {
    TokenOptions token = {};
    std::string file = {};
    std::string output = {};
};

Answer sign(const SignOptions& options);
Answer encrypt(const EncryptOptions& options);
Answer decrypt(const DecryptOptions& options);

} // namespace quelta::tools
