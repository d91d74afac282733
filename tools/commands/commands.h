// The commands, and the options that they take.
#pragma once

#include "tools/console/outcome.h"
#include "tools/token/open_token.h"

namespace quelta::tools {

// A table of the token's keys.
Outcome list();

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

struct VerifyOptions {
    std::string signature = {};
    std::string file = {};
    std::string output = {};
    std::vector<std::string> roots = {};
    std::string at = {};
};

Outcome verify(const VerifyOptions& options);

struct CheckOptions {
    PinSource pin = {};
    // Whether a PIN is to be had, from the dialog if from nowhere else.
    bool withPin = false;
    // Whether a token is left out of it.
    bool installationOnly = false;
    std::string report = {};
    bool json = false;
};

// Prints each line when it is found, and writes the report as it goes: the maker's library may hang or crash. With `json` nothing
// is printed before the end.
Outcome check(const CheckOptions& options);

// Publishes the token's certificates, RSA keys for CryptoAPI and those on curves for key storage, and takes away what was
// published of another token or before. With `watch` it goes on until it is interrupted: published while a token is plugged in,
// taken away when it is pulled.
Outcome publish(bool watch);
// Takes away all that publish() put there, and nothing else.
Outcome unpublish();

} // namespace quelta::tools
