#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "common/bcrypt_calls.h"
#include "store/pin.h"

#include <iostream>

namespace quelta::softtoken::cli {

namespace {

const std::string serialBeginning = "QUELTA-SOFTWARE-TOKEN-PROTECTS-NOTHING-";

} // namespace

void init(const Folder& folder, const InitOptions& options)
{
    StoredToken state;
    state.serial = serialBeginning + toHex(randomBytes(4));
    state.label = "Software token";
    state.pin = newPin(options.pin, options.attempts);
    createToken(folder, state, options.force);
    std::cout << state.serial << "\n";
}

void setPlugged(const Folder& folder, bool plugged)
{
    change(folder, [&](StoredToken& state) { state.plugged = plugged; });
}

void singleSignOn(const Folder& folder, const std::string& action)
{
    change(folder, [&](StoredToken& state) {
        if (action == "expire" && !state.singleSignOnEnabled)
            throw TokenError("single sign-on is off: turn it on first with: quelta-token sso on");
        state.singleSignOnEnabled = action != "off";
        state.singleSignOnOpen = action == "on";
    });
}

void clock(const Folder& folder, const std::string& action)
{
    change(folder, [&](StoredToken& state) { state.clockMismatch = action == "mismatch"; });
}

void pinChange(const Folder& folder, const std::string& newText)
{
    change(folder, [&](StoredToken& state) { state.pin = newPin(newText, state.pin.attempts); });
}

void pinUnlock(const Folder& folder)
{
    change(folder, [](StoredToken& state) { state.pin.remaining = state.pin.attempts; });
}

void pinLock(const Folder& folder)
{
    change(folder, [](StoredToken& state) { state.pin.remaining = 0; });
}

} // namespace quelta::softtoken::cli
