// The commands that use a key on files.
#pragma once

#include "tools/console/outcome.h"
#include "tools/token/open_token.h"

namespace quelta::tools {

struct SignOptions {
    TokenOptions token = {};
    std::vector<std::string> files = {};
    std::string output = {};
    std::string hash = "sha256";
    bool attached = false;
    bool add = false;
    bool force = false;
};

struct EncryptOptions {
    TokenOptions token = {};
    std::string file = {};
    std::string output = {};
    std::string certificate = {};
    bool force = false;
};

struct DecryptOptions {
    TokenOptions token = {};
    std::string file = {};
    std::string output = {};
};

Outcome sign(const SignOptions& options);
Outcome encrypt(const EncryptOptions& options);
Outcome decrypt(const DecryptOptions& options);

} // namespace quelta::tools
