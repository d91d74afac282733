#pragma once

#include "tools/commands/commands.h"
#include "tools/token/key_choice.h"

#include <memory>

namespace quelta::tools {

struct OpenedKey {
    std::unique_ptr<TokenProvider> provider;
    TokenKey key;
};

using ChooseKey = TokenKey (*)(std::vector<TokenKey> keys, const KeyWish& wish);

// The key that the options mean, through their provider; without one through the first that can do it with this key. What
// CryptoAPI says is told if neither can.
OpenedKey openKey(const TokenOptions& options, bool force, ChooseKey choose);

// The provider alone, chosen in the same way.
std::unique_ptr<TokenProvider> openAny(const TokenOptions& options);

// Gives the PIN to the provider, if it is not the dialog's to ask for it.
void logIn(TokenProvider& provider, const PinSource& pin);

} // namespace quelta::tools
