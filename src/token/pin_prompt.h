// The PIN check of both providers. A cached PIN is used again. The token's own single sign-on needs none. Otherwise the dialog
// asks until the token accepts the PIN, no attempt is left or the user cancels.
#pragma once

#include "token/token.h"

#include <cstddef>
#include <optional>

namespace quelta {

// The texts that differ between the providers, and the longest PIN that the provider keeps.
struct PinTexts {
    const char* alreadyValidated;
    const char* askingForPin;
    const char* clockMismatch;
    const char* cancelled;
    // In bytes. The token always gets the whole PIN.
    std::size_t longestPin = std::string::npos;
};

// The PIN to use, which is now cached as validated; it is empty under single sign-on. Nullopt if the PIN was refused or the
// dialog cancelled. `cached` is the cached PIN, null if there is none: a caller that has acted on it hands it in.
std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, Pin cached = tokenState().pinCache.pinIfValidated());

// Checks a PIN that an application supplied, and caches it if the token accepts it. The library's result, 0 for success.
int validateGivenPin(const Token& token, const char* pin);

} // namespace quelta
