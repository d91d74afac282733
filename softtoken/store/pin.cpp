#include "store/pin.h"

#include "crypto/primitives.h"
#include "store/token_store.h"

#include <algorithm>
#include <mutex>

namespace quelta::softtoken {

namespace {

constexpr std::uint64_t hashIterations = 10000;
constexpr std::size_t saltSize = 16;

ByteView viewOf(std::string_view pin)
{
    return {reinterpret_cast<const unsigned char*>(pin.data()), pin.size()};
}

Bytes hashOf(const StoredPin& stored, std::string_view pin)
{
    return pbkdf2(sha256, viewOf(pin), stored.salt, stored.iterations, sha256.size);
}

// The slow hash is taken once for a PIN and a stored hash: this remembers, keyed, what was right last.
class LastRightPin {
public:
    bool is(const StoredPin& stored, std::string_view pin)
    {
        const std::lock_guard guard(mutex_);
        const Bytes mark = markOf(stored, pin);
        return equalInConstantTime(mark, last_);
    }

    void remember(const StoredPin& stored, std::string_view pin)
    {
        const std::lock_guard guard(mutex_);
        last_ = markOf(stored, pin);
    }

private:
    // With the mutex held, and a PIN of no more than the longest.
    Bytes markOf(const StoredPin& stored, std::string_view pin)
    {
        if (key_.empty()) {
            key_ = randomBytes(sha256.size);
            mask_ = randomBytes(longestPin);
        }
        // The PIN goes in under a mask: a hash object keeps its last block of data, in memory that is not ours to wipe.
        Bytes data = mask_;
        for (std::size_t i = 0; i < pin.size(); ++i) data[i] = static_cast<unsigned char>(data[i] ^ viewOf(pin)[i]);
        append(data, stored.hash);
        return hmac(sha256, key_, data);
    }

    std::mutex mutex_;
    Bytes key_;
    Bytes mask_;
    Bytes last_;
};

LastRightPin lastRightPin;

bool changesNothing(const TokenState& state)
{
    return state.pin.remaining == state.pin.attempts && (!state.singleSignOnEnabled || state.singleSignOnOpen);
}

bool accept(TokenState& state)
{
    const bool changes = !changesNothing(state);
    state.pin.remaining = state.pin.attempts;
    state.singleSignOnOpen = state.singleSignOnEnabled;
    return changes;
}

} // namespace

StoredPin newPin(std::string_view pin, int attempts)
{
    const bool ascii = std::ranges::all_of(pin, [](char character) { return character >= ' ' && character <= '~'; });
    if (pin.size() < shortestPin || pin.size() > longestPin || !ascii)
        throw TokenError(Result::badArgument, "a PIN has 4 to 63 characters, all of them ASCII: choose another one");
    if (attempts < 1) throw TokenError(Result::badArgument, "a token needs at least one attempt");
    StoredPin stored{randomBytes(saltSize), {}, hashIterations, attempts, attempts};
    stored.hash = hashOf(stored, pin);
    return stored;
}

bool isRightPin(const StoredPin& stored, std::string_view pin)
{
    if (pin.size() > longestPin) return false;
    if (lastRightPin.is(stored, pin)) return true;
    if (!equalInConstantTime(hashOf(stored, pin), stored.hash)) return false;
    lastRightPin.remember(stored, pin);
    return true;
}

PinAnswer validatePin(const std::filesystem::path& folder, std::string_view pin)
{
    PinAnswer answer{static_cast<int>(Result::noToken), -1};
    changeToken(folder, [&](TokenState& state) {
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

int mayUse(const TokenState& state, Use use, const char* pin)
{
    if (state.singleSignOnEnabled && state.singleSignOnOpen) return static_cast<int>(Result::ok);
    if (state.singleSignOnEnabled && use == Use::privateKey) return resultSignOnExpired;
    if (state.pin.remaining <= 0) return static_cast<int>(Result::pinLocked);
    if (pin == nullptr || !isRightPin(state.pin, pin)) return static_cast<int>(Result::wrongPin);
    return static_cast<int>(Result::ok);
}

} // namespace quelta::softtoken
