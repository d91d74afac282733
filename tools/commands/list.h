#pragma once

#include "tools/console/outcome.h"

namespace quelta::tools {

// A table of the token's keys.
Outcome list();

} // namespace quelta::tools
