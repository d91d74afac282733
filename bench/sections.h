// What can be measured. Each throws a std::runtime_error if a call does not do what it should.
#pragma once

#include "figures.h"

namespace quelta::bench {

// Above the instant library: what the module adds to each call, at each level of the log, against what the log alone has to take.
Figures measureOverhead(const std::string& pin);
// Above the software token: the same calls against those of the library that they need.
Figures measureRatio(const std::string& pin);
// Above the instant library: more and more keys on the token, and longer and longer chains.
Figures measureGrowth(const std::string& pin);
Figures measureChains(const std::string& pin);

} // namespace quelta::bench
