// From the user's options to a key that is open.
#pragma once

#include "tools/console/pin.h"
#include "tools/token/key_choice.h"

#include <optional>

namespace quelta::tools {

struct TokenOptions {
    // Without it CryptoAPI, and key storage for what CryptoAPI can't do.
    std::optional<Interface> provider = {};
    std::string key = {};
    PinSource pin = {};
};

struct OpenedKey {
    std::unique_ptr<TokenProvider> provider;
    KeyEntry key;
};

// The key that the options mean, through their provider; without one through the first that can do it with this key. The failure
// of CryptoAPI is reported if neither can.
OpenedKey openKey(const TokenOptions& options, const Purpose& purpose, bool force);

// The provider alone, chosen in the same way.
std::unique_ptr<TokenProvider> openAny(const TokenOptions& options);

// Gives the PIN to the provider, if it is not the dialog's to ask for it.
void logIn(TokenProvider& provider, const PinSource& pin);

struct ListedKey {
    KeyEntry key;
    bool throughCsp = false;
    bool throughKsp = false;
};

// The keys of both interfaces: each key once, in the token's order. Throws the Failure of CryptoAPI if neither can be opened.
std::vector<ListedKey> listKeys();

} // namespace quelta::tools
