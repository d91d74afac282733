// Where the PIN comes from, if not from the provider's own dialog.
#pragma once

#include "base/wipe.h"

#include <string>

namespace quelta::tools {

struct PinSource {
    std::string given = {};
    bool fromInput = false;
    bool fromTerminal = false;

    // Without any of these the provider's dialog asks.
    bool isDialog() const { return given.empty() && !fromInput && !fromTerminal; }
};

// The first line of standard input, the rest of which stays there; or what the user types without seeing it. Throws a Failure if
// there is none.
Wiped<std::string> readPin(const PinSource& source);

} // namespace quelta::tools
