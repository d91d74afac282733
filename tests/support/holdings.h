// What a process holds, and would lose to a module that leaves something behind: for tests and for the soak.
#pragma once

#include <array>
#include <cstddef>

namespace quelta::test {

// Of TLS slots, those that are still free, below zero.
using Holdings = std::array<std::ptrdiff_t, 4>;
inline constexpr const char* holdingNames[] = {"threads", "handles", "TLS slots", "kilobytes on heaps"};

// Of this process.
Holdings holdings();

inline bool nothingMore(const Holdings& now, const Holdings& before)
{
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i] > before[i]) return false;
    return true;
}

} // namespace quelta::test
