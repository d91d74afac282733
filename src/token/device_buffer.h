#pragma once

#include "log/bytes.h"
#include "token/wipe.h"

#include <cstdlib>
#include <memory>

namespace quelta {

// Owns a buffer that the device library returned through an unsigned char**: it comes from the C runtime's heap. What it holds is a
// secret, and wiped.
class DeviceBuffer {
public:
    // `size` must be a length that was checked; 0 where the library's word on it can't be true.
    DeviceBuffer(unsigned char* memory, std::size_t size) : memory_(memory, WipeAndFree{size}) {}

    ByteView view() const { return {memory_.get(), memory_ ? memory_.get_deleter().size : 0}; }

private:
    struct WipeAndFree {
        std::size_t size;
        void operator()(unsigned char* memory) const
        {
            wipe(memory, size);
            std::free(memory);
        }
    };
    std::unique_ptr<unsigned char, WipeAndFree> memory_;
};

} // namespace quelta
