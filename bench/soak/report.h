// What a soak has found, as JSON and as a table.
#pragma once

#include "soak/board.h"
#include "soak/soak.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace quelta::soak {

// `weathers` tells how often there was each, `findings` are the driver's own.
nlohmann::ordered_json summary(const Board& board, const Options& options, const std::vector<std::uint64_t>& weathers,
                               const std::vector<std::string>& findings);
std::string table(const nlohmann::ordered_json& summary);

unsigned long long callsOn(const Board& board);

} // namespace quelta::soak
