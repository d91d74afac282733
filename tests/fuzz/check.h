#pragma once

#include "base/bytes.h"

#include <cstdlib>

namespace quelta::fuzz {

// Aborts unless the property holds.
inline void check(bool holds)
{
    if (!holds) std::abort();
}

// Aborts unless the part lies within the input.
inline void checkWithin(ByteView whole, ByteView part)
{
    check(part.size() <= whole.size() && part.data() >= whole.data());
    check(part.data() + part.size() <= whole.data() + whole.size());
}

} // namespace quelta::fuzz
