// The result of a command: lines for people, JSON for programs.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace quelta::tools {

using Json = nlohmann::ordered_json;

constexpr int exitDone = 0;
constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
// The signature is good, but nothing says whose root the signer leads to.
constexpr int exitChainNotChecked = 3;

struct Outcome {
    std::vector<std::string> lines = {};
    Json json = Json::object();
    int status = exitDone;
};

} // namespace quelta::tools
