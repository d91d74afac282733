#pragma once

#include <functional>
#include <vector>

namespace quelta::bench {

// Returns the microseconds that each of the calls takes: the median of several batches. The batches of all calls take turns, so
// that other work of the machine meets them all. An exception of a call passes through.
std::vector<double> sideBySide(const std::vector<std::function<void()>>& calls);

inline double microsecondsOf(const std::function<void()>& call)
{
    return sideBySide({call}).front();
}

// Returns the slope of a straight line through the logarithms: 1 for what grows with n, 2 for what grows with its square.
double fittedExponent(const std::vector<double>& sizes, const std::vector<double>& values);

} // namespace quelta::bench
