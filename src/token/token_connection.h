// Connects to the token when either provider opens a handle. Starts the monitor and takes the first connected token. Starts the
// library and opens the token only if that was not done before.
#pragma once

#include <expected>
#include <string>

namespace quelta {

struct OpeningTexts {
    const char* startingLibrary;
    const char* noToken;
    // The library's result is appended.
    const char* openFailed;
};

enum class OpeningFailure { noToken, deviceOpenFailed };

// Returns the token's identifier. Logs failures with the caller's texts.
std::expected<std::string, OpeningFailure> openFirstToken(void* libContext, const OpeningTexts& texts);

} // namespace quelta
