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

bool askForText(Wiped<std::string>& text)
{
    text.clear();
    showPasswordDialog(*text);
    return !text->empty();
}

void copyBounded(const std::string& text, PinBuffer& buffer)
{
    const std::size_t length = std::min(text.size(), buffer.size() - 1);
    std::copy_n(text.begin(), length, buffer.begin());
    buffer[length] = '\0';
}

} // namespace

std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts)
{
    return ensurePin(token, texts, tokenState().pinCache.pinIfValidated());
}

std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, Pin cached)
{
    if (cached && !(*cached)->empty()) {
        logDebug(texts.alreadyValidated);
        return cached;
    }
    logDebug(texts.askingForPin);
    Wiped<PinBuffer> buffer;
    if (promptForPin(token, texts, *buffer) == 0) return std::nullopt;
    Pin accepted = std::make_shared<const PinText>(buffer->data());
    tokenState().pinCache.setValidated(accepted);
    return accepted;
}

int promptForPin(const Token& token, const PinTexts& texts, PinBuffer& buffer)
{
    buffer.fill('\0');
    if (token.singleSignOnOpen()) return 1;
    tokenState().pinCache.clear();
    // On its way from the dialog to the token.
    Wiped<std::string> typed;
    while (askForText(typed)) {
        int remaining = 0;
        const int result = token.validatePassword(typed->c_str(), remaining);
        if (result == 0) {
            copyBounded(*typed, buffer);
            return 1;
        }
        // The box may stand for long.
        typed.clear();
        MessageBoxA(nullptr, refusalText(result, remaining, texts).c_str(), "Quelta", MB_OK);
        if (remaining == 0) return 0;
    }
    logDebug(texts.cancelled);
    return 0;
}

int validateGivenPin(const Token& token, const char* pin)
{
    int remaining = 0;
    const int result = token.validatePassword(pin, remaining);
    if (result == 0) tokenState().pinCache.setValidated(std::make_shared<const PinText>(pin));
    return result;
}

} // namespace quelta
