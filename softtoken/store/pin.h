// The token's PIN: its salted hash, its attempts, its lock, and which uses it allows.
#pragma once

#include "store/stored_token.h"

#include <filesystem>
#include <string_view>

namespace quelta::softtoken {

// Throws TokenError if the PIN's length is out of bounds or if it is not ASCII. Applications pass a PIN in the system's code
// page, so other characters would differ between systems.
StoredPin newPin(std::string_view pin, int attempts);
bool isRightPin(const StoredPin& stored, std::string_view pin);

struct PinAnswer {
    int result;
    int remaining;
};

// Checks a PIN. Counts a wrong one and may lock the PIN. A right one resets the counter and opens the single sign-on session.
PinAnswer validatePin(const std::filesystem::path& folder, std::string_view pin);

enum class Use {
    privateKey,    // sign, decrypt: answers that the single sign-on has expired
    administration // generate, delete, import
};

// Returns 0 if the PIN or an open session allows the use. A wrong PIN is refused and not counted: an application that repeats an
// operation with a stale PIN would lock the token.
int mayUse(const StoredToken& state, Use use, const char* pin);

} // namespace quelta::softtoken
