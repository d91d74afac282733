// The board that the driver and its workers share. It lies in shared memory, so that the driver can read it when a worker hangs
// or has died.
#pragma once

#include "soak/calls.h"
#include "store/stored_token.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace quelta::soak {

// A state of the token, while the workers work.
struct State {
    const char* name;
    Needs offers;
    // Changes a token that is plugged in, unlocked and signed on.
    void (*change)(softtoken::StoredToken& token);
    // In tenths of a second.
    unsigned shortest, longest;
};

inline void signOff(softtoken::StoredToken& token)
{
    token.singleSignOnEnabled = token.singleSignOnOpen = false;
}

// The driver takes them one after the other. The module looks for the token once a second, and forgets the PIN if there is no
// token. So only a long absence is sure to clear the PIN.
constexpr State states[] = {
    {"changing", nothing, nullptr, 0, 0},
    {"signed on", session, [](auto&) {}, 15, 40},
    {"signed off", pin, signOff, 5, 20},
    {"expired", pin, [](auto& token) { token.singleSignOnOpen = false; }, 5, 20},
    {"locked", Needs::token, [](auto& token) { signOff(token), token.pin.remaining = 0; }, 5, 15},
    {"pulled", nothing, [](auto& token) { token.plugged = false; }, 2, 15},
    {"pulled for long", nothing, [](auto& token) { token.plugged = false; }, 60, 70},
    {"given another PIN", pin, signOff, 10, 20},
};
enum StateRow : unsigned { changing, signedOn, signedOff, expired, locked, pulled, pulledForLong, givenAnotherPin };

// The token has one of these in turn.
constexpr const char* pins[] = {"24680", "135790"};
constexpr const char wrongPin[] = "13579";

constexpr std::size_t workers = 3, threadsEach = 4;

enum class Stage { start, firstRound, firstRest, secondRound, secondRest, quiet };

// The call that a thread makes, and its start; 0 for no call.
struct ThreadLine {
    std::atomic<std::size_t> call;
    std::atomic<std::uint64_t> since;
};

struct WorkerLine {
    // The last line is the main thread's.
    ThreadLine threads[threadsEach + 1];
    std::atomic<Stage> finished;
};

struct Board {
    std::uint32_t seed;
    double minutes;
    std::atomic<Stage> stage;
    // The number of changes times 16, plus the row of the state. It is equal before and after a call if the token did not change.
    std::atomic<std::uint32_t> moment;
    std::atomic<unsigned> pin;
    std::atomic<unsigned> changes[std::size(states)];
    std::atomic<std::uint64_t> done[std::size(calls)], refused[std::size(calls)];
    std::atomic<std::uint64_t> signatures, decryptions, windows, unloadings;
    // A wrong PIN is counted before it is entered.
    std::atomic<std::uint64_t> wrongPins;
    WorkerLine workers[soak::workers];
};

inline const State& stateAt(std::uint32_t moment)
{
    return states[moment % 16];
}

// Returns the board with this name. A new board is all zeros. It stays until the process ends.
Board& sharedBoard(const std::wstring& name);

} // namespace quelta::soak
