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
    DeviceBuffer(unsigned char* memory, std::size_t size) : memory_(memory), size_(memory ? size : 0) {}
    DeviceBuffer(DeviceBuffer&&) = default;
    DeviceBuffer& operator=(DeviceBuffer&&) = delete;
    ~DeviceBuffer()
    {
        if (memory_) wipe(memory_.get(), size_);
    }

    ByteView view() const { return {memory_.get(), size_}; }

private:
    struct Free {
        void operator()(unsigned char* memory) const { std::free(memory); }
    };
    std::unique_ptr<unsigned char, Free> memory_;
    std::size_t size_;
};

} // namespace quelta
