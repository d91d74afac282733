// The sections of the benchmark. A section throws std::runtime_error if a call fails.
#pragma once

#include "figures.h"

namespace quelta::bench {

// Measures, above the instant library and at each log level, the module's time for each call beside the time of its registry
// reads.
Figures measureOverhead(const std::string& pin);
// Measures the same calls above the software token beside the library's calls that they need.
Figures measureRatio(const std::string& pin);
// Measure above the instant library with more and more keys on the token, and with longer and longer chains.
Figures measureGrowth(const std::string& pin);
Figures measureChains(const std::string& pin);

} // namespace quelta::bench
