// The two kinds of processes that a soak consists of.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace quelta::soak {

struct Options {
    double minutes = 1;
    std::uint32_t seed = 0;
    bool json = false;
    // A line every ten seconds.
    bool progress = false;
    // For the logs of the working processes and what they print.
    std::filesystem::path folder;
};

// Starts the working processes, makes the weather, watches that all of them go on, and tells what came of it: 0 if everything
// held, else 1.
int drive(const Options& options);

// Several threads use both interfaces for two halves; what the process holds is measured after each.
void work(const std::wstring& board, std::size_t process);

} // namespace quelta::soak
