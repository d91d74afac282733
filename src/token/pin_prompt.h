// The PIN check of both providers: a cached PIN is used again, the token's own single sign-on needs none, otherwise the dialog
// asks until the token accepts, its attempts are used up or the user gives up. What differs between the providers is their texts.
#pragma once

#include "token/token.h"

#include <array>
#include <optional>

namespace quelta {

using PinBuffer = std::array<char, 64>;

struct PinTexts {
    const char* alreadyValidated;
    const char* askingForPin;
    const char* clockMismatch;
    const char* cancelled;
};

// The PIN to use, now cached as validated; empty under single sign-on. Nothing if the PIN was refused or the dialog cancelled.
std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts);
// The same for a caller that has taken the cached PIN already, and acted on it. Null where there was none.
std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, Pin cached);

// Asks and checks. 1 with the accepted PIN in `buffer`, or with an empty one under single sign-on; 0 if the dialog was cancelled
// or no attempt is left. Empties the cache before it shows the dialog.
int promptForPin(const Token& token, const PinTexts& texts, PinBuffer& buffer);

// Checks a PIN that the caller of a provider supplied, and caches it if the token accepts it; else the library's result.
int validateGivenPin(const Token& token, const char* pin);

} // namespace quelta
