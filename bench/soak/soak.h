// The two kinds of processes that a soak consists of, and their parts.
#pragma once

#include "soak/board.h"

#include <filesystem>
#include <thread>
#include <vector>

namespace quelta::soak {

// Starts the workers, changes the token, and reports: 0 if everything held, else 1. In the folder are the workers' logs, and what
// they print.
int drive(const std::filesystem::path& folder, double minutes, std::uint32_t seed);

// Prints in a few lines what was done, and what was found by the driver and by the workers: 1 if there is any of that, else 0.
int report(const Board& board, const std::filesystem::path& folder, std::vector<std::string> findings);

// Uses the module in several threads for two rounds, and compares what the process holds after each.
void work(const std::wstring& board, std::size_t number);

// Sits before the screen of a worker: gives PINs, at times a wrong one first, and acknowledges messages.
std::jthread startUser(Board& board);

} // namespace quelta::soak
