// Where the PIN comes from, if not from the provider's own dialog.
#pragma once

#include "base/wipe.h"

#include <optional>
#include <string>

namespace quelta::tools {

struct PinSource {
    std::optional<std::string> given = {};
    bool fromInput = false;

    // Without either the provider's dialog asks.
    bool isDialog() const { return !given && !fromInput; }
};

// Returns the PIN in the system's code page, as the provider takes it: the PIN that was given, or the first line of standard
// input, the rest of which stays there. Throws a Failure if there is none.
Wiped<std::string> readPin(const PinSource& source);

} // namespace quelta::tools
