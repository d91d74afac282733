// Opens the token and a key by the user's options.
#pragma once

#include "tools/console/pin.h"
#include "tools/token/key_choice.h"

#include <optional>

namespace quelta::tools {

struct TokenOptions {
    // If empty: CryptoAPI, else key storage.
    std::optional<Interface> provider = {};
    std::string key = {};
    PinSource pin = {};
};

struct OpenedKey {
    std::unique_ptr<TokenProvider> provider;
    KeyEntry key;
};

// Opens the key that the options name, through their provider, else through the first interface that works with this key. If none
// works, CryptoAPI's Failure is thrown.
OpenedKey openKey(const TokenOptions& options, const Purpose& purpose, bool force);

// Opens the provider alone, chosen in the same way.
std::unique_ptr<TokenProvider> openAny(const TokenOptions& options);

// Gives the PIN to the provider, unless the dialog asks for it.
void logIn(TokenProvider& provider, const PinSource& pin);

struct ListedKey {
    KeyEntry key;
    bool throughCsp = false;
    bool throughKsp = false;
};

// Returns the keys of both interfaces, each key once, in the token's order. Throws CryptoAPI's Failure if neither can be opened.
std::vector<ListedKey> listKeys();

} // namespace quelta::tools
