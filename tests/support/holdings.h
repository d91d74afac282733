// Counts the resources of a process, so that tests and the soak see what a module leaves behind.
#pragma once

#include <array>
#include <cstddef>

namespace quelta::test {

// TLS slots count as the negative number of free slots.
using Holdings = std::array<std::ptrdiff_t, 4>;
inline constexpr const char* holdingNames[] = {"threads", "handles", "TLS slots", "kilobytes on heaps"};

// Returns the holdings of this process.
Holdings holdings();

inline bool nothingMore(const Holdings& now, const Holdings& before)
{
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i] > before[i]) return false;
    return true;
}

} // namespace quelta::test
