// How both providers reach the token when a handle is opened: start the library and the monitor, take the first connected token,
// and open it once per process.
#pragma once

#include <expected>
#include <string>

namespace quelta {

struct OpeningTexts {
    const char* startingLibrary;
    const char* noToken;
    // Followed by the library's result.
    const char* openFailed;
};

enum class OpeningFailure { noToken, deviceOpenFailed };

// The token's identifier. Failures are logged with the caller's texts.
std::expected<std::string, OpeningFailure> openFirstToken(void* libContext, const OpeningTexts& texts);

} // namespace quelta
