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
    // The longest PIN in bytes. The token always gets the whole PIN.
    std::size_t longestPin = std::string::npos;
};

// Returns the PIN to use, which is now cached as validated; it is empty under single sign-on. Returns nullopt if the PIN was
// refused or the dialog cancelled. `cached` is the cached PIN or null; a caller that has read the cache already passes it on.
std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, Pin cached = tokenState().pinCache.pinIfValidated());

// Checks a PIN from an application, and caches it if the token accepts it. Returns the library's result, 0 for success.
int validateGivenPin(const Token& token, const char* pin);

} // namespace quelta
