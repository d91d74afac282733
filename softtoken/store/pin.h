// The token's PIN: kept as a salted hash, counted, locked. Also who may do what.
#pragma once

#include "store/stored_token.h"

#include <filesystem>
#include <string_view>

namespace quelta::softtoken {

// Throws TokenError if the PIN's length is out of bounds, or it is not all ASCII: applications hand a PIN over in the system's
// code page, so that any other character would not be the same one everywhere.
StoredPin newPin(std::string_view pin, int attempts);
bool isRightPin(const StoredPin& stored, std::string_view pin);

struct PinAnswer {
    int result;
    int remaining;
};

// Counts, locks, resets the counter and opens the single sign-on session, as far as each applies.
PinAnswer validatePin(const std::filesystem::path& folder, std::string_view pin);

enum class Use {
    privateKey,    // sign, decrypt: answers that the single sign-on has expired
    administration // generate, delete, import
};

// 0 if the PIN, or the session in its place, allows the use. A wrong PIN is refused here, not counted: an application that
// repeats an operation with a stale PIN would lock the token.
int mayUse(const StoredToken& state, Use use, const char* pin);

} // namespace quelta::softtoken
