// The sections of the benchmark. A section throws std::runtime_error if a call fails.
#pragma once

#include "figures.h"

namespace quelta::bench {

// Measures the module's time for each call beside the time of its registry reads, with the instant library, at each log level.
Figures measureOverhead(const std::string& pin);
// Measures the same calls with the software token, beside the library's calls that they need.
Figures measureRatio(const std::string& pin);
// Measure with the instant library: with more and more keys on the token, and with longer and longer chains.
Figures measureGrowth(const std::string& pin);
Figures measureChains(const std::string& pin);

} // namespace quelta::bench
