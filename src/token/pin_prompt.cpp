#include "token/pin_prompt.h"

#include "base/wipe.h"
#include "log/log_writer.h"
#include "token/pin_dialog.h"

#include <windows.h>

#include <algorithm>

namespace quelta {

namespace {

// A text on its way from the dialog to the token, wiped afterwards.
struct TypedPin {
    std::string text;

    TypedPin() = default;
    TypedPin(const TypedPin&) = delete;
    TypedPin& operator=(const TypedPin&) = delete;
    ~TypedPin() { wipe(text.data(), text.size()); }
};

struct WipedBuffer {
    PinBuffer text{};

    WipedBuffer() = default;
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    ~WipedBuffer() { wipe(text.data(), text.size()); }
};

std::string refusalText(int result, int remaining, const PinTexts& texts)
{
    if (result == resultClockMismatch) return texts.clockMismatch;
    if (remaining == 0) return "User pin locked, re-initialise device";
    return "Invalid user pin. Remaining attempts(" + std::to_string(remaining) + ")";
}

bool askForText(std::string& text)
{
    wipe(text.data(), text.size());
    showPasswordDialog(text);
    return !text.empty();
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

std::optional<Pin> ensurePin(const Token& token, const PinTexts& texts, const Pin& cached)
{
    if (cached && !cached->empty()) {
        logDebug(texts.alreadyValidated);
        return cached;
    }
    logDebug(texts.askingForPin);
    WipedBuffer buffer;
    if (promptForPin(token, texts, buffer.text) == 0) return std::nullopt;
    const Pin accepted = std::make_shared<const PinText>(buffer.text.data());
    tokenState().pinCache.setValidated(accepted);
    return accepted;
}

int promptForPin(const Token& token, const PinTexts& texts, PinBuffer& buffer)
{
    buffer.fill('\0');
    if (token.singleSignOnOpen()) return 1;
    tokenState().pinCache.clear();
    TypedPin typed;
    while (askForText(typed.text)) {
        int remaining = 0;
        const int result = token.validatePassword(typed.text.c_str(), remaining);
        if (result == 0) {
            copyBounded(typed.text, buffer);
            return 1;
        }
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
