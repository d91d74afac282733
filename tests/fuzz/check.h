#pragma once

#include "base/bytes.h"

#include <cstdlib>

namespace quelta::fuzz {

// A property that holds for every input.
inline void check(bool holds)
{
    if (!holds) std::abort();
}

// A part of the input, wherever its lengths say that it stands.
inline void checkWithin(ByteView whole, ByteView part)
{
    check(part.size() <= whole.size() && part.data() >= whole.data());
    check(part.data() + part.size() <= whole.data() + whole.size());
}

} // namespace quelta::fuzz
