// What `quelta verify` does, from its options to what it has to say.
#pragma once

#include "tools/console/answer.h"

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

Answer verify(const VerifyOptions& options);

} // namespace quelta::tools
