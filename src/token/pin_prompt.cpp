#include "token/pin_prompt.h"

#include "log/log_writer.h"
#include "token/pin_dialog.h"

#include <windows.h>

#include <algorithm>

namespace quelta {

namespace {

std::string refusalText(int result, int remaining, const PinTexts& texts)
{
    if (result == resultClockMismatch) return texts.clockMismatch;
    if (remaining == 0) return "User pin locked, re-initialise device";
    return "Invalid user pin. Remaining attempts(" + std::to_string(remaining) + ")";
}

bool askForText(PinText& text)
{
    showPasswordDialog(*text);
    return !text->empty();
}

// Returns the accepted PIN; an empty one under single sign-on; null if the dialog was cancelled or the token reported no attempts
// left. Clears the PIN cache before it shows the dialog.
Pin promptForPin(const Token& token, const PinTexts& texts)
{
    // Allocate first. Memory must not run out after the token has accepted the PIN.
    auto typed = std::make_shared<PinText>();
    if (token.singleSignOnOpen()) return typed;
    tokenState().pinCache.clear();
    while (askForText(*typed)) {
        int remaining = 0;
        const int result = token.validatePassword((*typed)->c_str(), remaining);
        if (result == 0) {
            (*typed)->resize(std::min((*typed)->size(), texts.longestPin));
            return typed;
        }
        // The refused PIN must not stay in memory while the message is shown.
        typed->clear();
        MessageBoxA(nullptr, refusalText(result, remaining, texts).c_str(), "Quelta", MB_OK);
        if (remaining == 0) return nullptr;
    }
    logDebug(texts.cancelled);
    return nullptr;
}

} // namespace

std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, Pin cached)
{
    if (cached && !(*cached)->empty()) {
        logDebug(texts.alreadyValidated);
        return cached;
    }
    logDebug(texts.askingForPin);
    Pin accepted = promptForPin(token, texts);
    if (!accepted) return std::nullopt;
    tokenState().pinCache.setValidated(accepted);
    return accepted;
}

int validateGivenPin(const Token& token, const char* pin)
{
    // Check and cache the same copy: another thread of the application may change `pin` meanwhile.
    const auto copy = std::make_shared<const PinText>(pin);
    int remaining = 0;
    const int result = token.validatePassword((*copy)->c_str(), remaining);
    if (result == 0) tokenState().pinCache.setValidated(copy);
    return result;
}

} // namespace quelta
