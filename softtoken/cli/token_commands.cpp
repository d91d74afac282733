#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "crypto/primitives.h"
#include "store/pin.h"

#include <iostream>

namespace quelta::softtoken::cli {

namespace {

const std::string serialBeginning = "QUELTA-SOFTWARE-TOKEN-PROTECTS-NOTHING-";

std::string singleSignOnText(const TokenState& state)
{
    if (!state.singleSignOnEnabled) return "off";
    return state.singleSignOnOpen ? "on, open" : "on, expired";
}

} // namespace

void init(const Folder& folder, const InitOptions& options)
{
    TokenState state;
    state.serial = serialBeginning + toHex(randomBytes(4));
    state.label = options.label;
    state.pin = newPin(options.pin, options.attempts);
    createToken(folder, state, options.force);
    std::cout << state.serial << "\n";
}

void setPlugged(const Folder& folder, bool plugged)
{
    change(folder, [&](TokenState& state) { state.plugged = plugged; });
}

void singleSignOn(const Folder& folder, const std::string& action)
{
    if (action == "status") {
        std::cout << singleSignOnText(*requireToken(folder)) << "\n";
        return;
    }
    change(folder, [&](TokenState& state) {
        if (action == "expire" && !state.singleSignOnEnabled)
            throw TokenError("single sign-on is off: turn it on first with: quelta-token sso on");
        state.singleSignOnEnabled = action != "off";
        state.singleSignOnOpen = action == "on";
    });
}

void clock(const Folder& folder, const std::string& action)
{
    if (action == "status")
        std::cout << (requireToken(folder)->clockMismatch ? "mismatch" : "ok") << "\n";
    else
        change(folder, [&](TokenState& state) { state.clockMismatch = action == "mismatch"; });
}

void pinStatus(const Folder& folder)
{
    const StoredPin pin = requireToken(folder)->pin;
    std::cout << (pin.remaining > 0 ? "" : "locked, ") << pin.remaining << " of " << pin.attempts << " attempts left\n";
}

void pinChange(const Folder& folder, const std::string& newText)
{
    change(folder, [&](TokenState& state) { state.pin = newPin(newText, state.pin.attempts); });
}

void pinUnlock(const Folder& folder)
{
    change(folder, [](TokenState& state) { state.pin.remaining = state.pin.attempts; });
}

void pinLock(const Folder& folder)
{
    change(folder, [](TokenState& state) { state.pin.remaining = 0; });
}

} // namespace quelta::softtoken::cli
