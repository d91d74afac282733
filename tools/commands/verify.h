#pragma once

#include "tools/console/outcome.h"

#include <string>
#include <vector>

namespace quelta::tools {

struct VerifyOptions {
    std::string signature = {};
    std::string file = {};
    std::string output = {};
    std::vector<std::string> roots = {};
    std::string at = {};
};

Outcome verify(const VerifyOptions& options);

} // namespace quelta::tools
