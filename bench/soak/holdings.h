// What a process holds, and would lose to a module that leaves something behind: for the soak and for tests.
#pragma once

#include <array>
#include <cstddef>

namespace quelta::bench {

// Threads, handles, TLS slots (below zero: those that are still free), kilobytes in use on heaps.
using Holdings = std::array<std::ptrdiff_t, 4>;

// Of this process.
Holdings holdings();

inline bool nothingMore(const Holdings& now, const Holdings& before)
{
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i] > before[i]) return false;
    return true;
}

} // namespace quelta::bench
