#include "store/pin.h"

#include "common/bcrypt_calls.h"
#include "crypto/primitives.h"
#include "store/token_store.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

constexpr std::size_t shortestPin = 4;

// The PIN is combined with the salt, which is as long as any PIN. A hash object keeps its last block of data in memory that this
// code can't wipe.
Bytes hashOf(const StoredPin& stored, std::string_view pin)
{
    Bytes data = stored.salt;
    for (std::size_t i = 0; i < pin.size(); ++i) data[i] = static_cast<unsigned char>(data[i] ^ pin[i]);
    return digestOf(sha256, data);
}

// Returns whether anything has changed.
bool accept(StoredToken& token)
{
    const bool changes = token.pin.remaining != token.pin.attempts || token.singleSignOnOpen != token.singleSignOnEnabled;
    token.pin.remaining = token.pin.attempts;
    token.singleSignOnOpen = token.singleSignOnEnabled;
    return changes;
}

} // namespace

StoredPin newPin(std::string_view pin, int attempts)
{
    const bool ascii = std::ranges::all_of(pin, [](char character) { return character >= ' ' && character <= '~'; });
    if (pin.size() < shortestPin || pin.size() > longestPin || !ascii)
        throw TokenError(Result::badArgument, "a PIN has 4 to 63 characters, all of them ASCII: choose another one");
    if (attempts < 1) throw TokenError(Result::badArgument, "a token needs at least one attempt");
    StoredPin stored{randomBytes(longestPin), {}, attempts, attempts};
    stored.hash = hashOf(stored, pin);
    return stored;
}

bool isRightPin(const StoredPin& stored, std::string_view pin)
{
    return pin.size() <= longestPin && hashOf(stored, pin) == stored.hash;
}

PinAnswer validatePin(const std::filesystem::path& folder, std::string_view pin)
{
    PinAnswer answer{static_cast<int>(Result::noToken), -1};
    changeToken(folder, [&](StoredToken& state) {
        StoredPin& stored = state.pin;
        const auto decide = [&](Result result, bool changed) {
            answer = {static_cast<int>(result), stored.remaining};
            return changed;
        };
        if (!state.plugged) return false;
        if (state.clockMismatch) {
            answer = {resultClockMismatch, -1};
            return false;
        }
        if (stored.remaining <= 0) return decide(Result::pinLocked, false);
        if (isRightPin(stored, pin)) {
            const bool changed = accept(state);
            return decide(Result::ok, changed);
        }
        --stored.remaining;
        ++state.wrongPins;
        return decide(stored.remaining == 0 ? Result::pinLocked : Result::wrongPin, true);
    });
    return answer;
}

int mayUse(const StoredToken& state, Use use, const char* pin)
{
    if (state.singleSignOnEnabled && state.singleSignOnOpen) return static_cast<int>(Result::ok);
    if (state.singleSignOnEnabled && use == Use::privateKey) return resultSignOnExpired;
    if (state.pin.remaining <= 0) return static_cast<int>(Result::pinLocked);
    if (pin == nullptr || !isRightPin(state.pin, pin)) return static_cast<int>(Result::wrongPin);
    return static_cast<int>(Result::ok);
}

} // namespace quelta::softtoken
