#pragma once

#include <cstdlib>

namespace quelta::fuzz {

// A property that holds for every input.
inline void check(bool holds)
{
    if (!holds) std::abort();
}

} // namespace quelta::fuzz
