// The four commands, each from its options to its line of success.
#pragma once

#include "token_provider.h"

#include <string>

namespace quelta::tools {

struct TokenOptions {
    Interface provider = Interface::csp;
    std::string container;
    std::string pin;
};

struct SignOptions {
    TokenOptions token;
    std::string file;
    std::string output;
    std::string hash = "sha256";
    bool pem = false;
};

struct VerifyOptions {
    std::string signature;
    std::string file;
    std::string root;
};

struct EncryptOptions {
    TokenOptions token;
    std::string file;
    std::string output;
    std::string certificate;
};

struct DecryptOptions {
    TokenOptions token;
    std::string file;
    std::string output;
};

void sign(const SignOptions& options);
void verify(const VerifyOptions& options);
void encrypt(const EncryptOptions& options);
void decrypt(const DecryptOptions& options);

} // namespace quelta::tools
