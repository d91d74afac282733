// The commands, and the options that they take.
#pragma once

#include "tools/console/outcome.h"
#include "tools/token/open_token.h"

namespace quelta::tools {

// Returns a table of the token's keys.
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
    // Whether to sign as well, with the given PIN or the dialog.
    bool withPin = false;
    // Whether to stop before the token.
    bool installationOnly = false;
    std::string report = {};
    bool json = false;
};

// Prints each line when its step ends, and writes the report at the same time, since the maker's library may hang or crash. With
// `json` nothing is printed before the end.
Outcome check(const CheckOptions& options);

// Publishes the token's certificates: RSA keys for CryptoAPI, EC keys for key storage. Removes the other published certificates.
// With `watch` it runs until it is interrupted, publishes when a token is plugged in, and removes when the token is pulled.
Outcome publish(bool watch);
// Removes all certificates that publish() added, and no others.
Outcome unpublish();

} // namespace quelta::tools
