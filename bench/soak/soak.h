// The two kinds of processes that a soak consists of, and their parts.
#pragma once

#include "soak/board.h"

#include <filesystem>
#include <thread>
#include <vector>

namespace quelta::soak {

// Starts the workers, changes the token, and reports. Returns 0 if everything held, else 1. The workers' logs and outputs go to
// the folder.
int drive(const std::filesystem::path& folder, double minutes, std::uint32_t seed);

// Prints what was done, and what the driver and the workers found. Returns 1 if they found anything, else 0.
int report(const Board& board, const std::filesystem::path& folder, std::vector<std::string> findings);

// Uses the module in several threads for two rounds, and compares what the process holds after each.
void work(const std::wstring& board, std::size_t number);

// Starts a simulated user of a worker's windows, who enters PINs, sometimes a wrong one first, and acknowledges messages.
std::jthread startUser(Board& board);

} // namespace quelta::soak
