// The source of the PIN, if it is not the provider's dialog.
#pragma once

#include "base/wipe.h"

#include <optional>
#include <string>

namespace quelta::tools {

struct PinSource {
    std::optional<std::string> given = {};
    bool fromInput = false;

    // Without both the provider's dialog asks.
    bool isDialog() const { return !given && !fromInput; }
};

// Returns the PIN in the system's code page, as the provider takes it: the given PIN, or the first line of standard input. The
// rest of the input stays unread. Throws a Failure if there is none.
Wiped<std::string> readPin(const PinSource& source);

} // namespace quelta::tools
