#include "base/hex.h"
#include "cli/commands.h"
#include "cli/select.h"
#include "common/bcrypt_calls.h"
#include "store/pin.h"

#include <iostream>

namespace quelta::softtoken::cli {

void init(const CommandLine& given)
{
    StoredToken token;
    token.serial = "QUELTA-SOFTWARE-TOKEN-PROTECTS-NOTHING-" + toHex(randomBytes(4));
    token.label = "Software token";
    token.pin = newPin(given.pin, given.attempts);
    createToken(given.folder, token, given.force);
    std::cout << token.serial << "\n";
}

void plug(const CommandLine& given)
{
    change(given.folder, [](StoredToken& token) { token.plugged = true; });
}

void unplug(const CommandLine& given)
{
    change(given.folder, [](StoredToken& token) { token.plugged = false; });
}

void singleSignOn(const CommandLine& given)
{
    change(given.folder, [&](StoredToken& token) {
        if (given.action == "expire" && !token.singleSignOnEnabled)
            throw TokenError("single sign-on is off: turn it on first with: quelta-token sso on");
        token.singleSignOnEnabled = given.action != "off";
        token.singleSignOnOpen = given.action == "on";
    });
}

void clock(const CommandLine& given)
{
    change(given.folder, [&](StoredToken& token) { token.clockMismatch = given.action == "mismatch"; });
}

void pinChange(const CommandLine& given)
{
    change(given.folder, [&](StoredToken& token) { token.pin = newPin(given.pin, token.pin.attempts); });
}

void pinUnlock(const CommandLine& given)
{
    change(given.folder, [](StoredToken& token) { token.pin.remaining = token.pin.attempts; });
}

void pinLock(const CommandLine& given)
{
    change(given.folder, [](StoredToken& token) { token.pin.remaining = 0; });
}

} // namespace quelta::softtoken::cli
