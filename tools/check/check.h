// Goes through all that has to be there for an application to use the token, for people who help others.
#pragma once

#include "tools/console/outcome.h"
#include "tools/console/pin.h"

#include <string>

namespace quelta::tools {

struct CheckOptions {
    PinSource pin = {};
    // Whether a PIN is to be had, from the dialog if from nowhere else.
    bool withPin = false;
    // Whether a token is left out of it.
    bool installationOnly = false;
    std::string report = {};
    bool json = false;
};

// Prints each line when it is found, and writes the report as it goes: the maker's library may hang or crash. With `json` nothing
// is printed before the end.
Outcome check(const CheckOptions& options);

} // namespace quelta::tools
