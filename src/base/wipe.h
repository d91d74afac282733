#pragma once

#include <cstddef>

namespace quelta {

// Overwrites memory with zeros in a way that the compiler keeps.
inline void wipe(void* memory, std::size_t size)
{
    volatile unsigned char* at = static_cast<unsigned char*>(memory);
    for (std::size_t i = 0; i < size; ++i) at[i] = 0;
}

} // namespace quelta
