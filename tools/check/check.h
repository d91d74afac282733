// Goes through all that has to be there for an application to use the token, for people who help others.
#pragma once

#include "tools/console/answer.h"
#include "tools/console/pin.h"

#include <string>

namespace quelta::tools {

struct CheckOptions {
    PinSource pin = {};
    // Whether a PIN is to be had, from the dialog if from nowhere else.
    bool withPin = false;
    std::string report = {};
};

Answer check(const CheckOptions& options);

} // namespace quelta::tools
