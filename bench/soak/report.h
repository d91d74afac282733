// What a soak has found, as JSON and as a table.
#pragma once

#include "soak/board.h"
#include "soak/soak.h"
#include "soak/weather.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace quelta::soak {

// `findings` are the driver's own.
nlohmann::ordered_json summary(const Board& board, const Options& options, const Disturbances& disturbances,
                               const std::vector<std::string>& findings);
std::string table(const nlohmann::ordered_json& summary);

std::uint64_t timesDone(const Board& board, std::size_t call);
unsigned long long callsOn(const Board& board);

} // namespace quelta::soak
