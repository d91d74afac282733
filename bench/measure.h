#pragma once

#include <functional>
#include <vector>

namespace quelta::bench {

// Microseconds that each of the calls takes: the median of several batches, each long enough for the clock. The calls' batches
// take turns, so that whatever else the machine does meets all of them. What a call throws comes through.
std::vector<double> sideBySide(const std::vector<std::function<void()>>& calls);

inline double microsecondsOf(const std::function<void()>& call)
{
    return sideBySide({call}).front();
}

// The slope of a straight line through the logarithms: 1 for what grows with n, 2 for what grows with its square.
double fittedExponent(const std::vector<double>& sizes, const std::vector<double>& values);

} // namespace quelta::bench
