#pragma once

#include "base/bytes.h"
#include "base/wipe.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace quelta {

// A buffer that the device library returned through an unsigned char**, with the length it reported. It comes from the C
// runtime's heap and is released as such; what it holds is a secret, and wiped: all that the heap gave, whatever was reported.
class DeviceBuffer {
public:
    DeviceBuffer(unsigned char* memory, int reportedLength) : memory_(memory), reportedLength_(reportedLength) {}

    // False where the library gave none, whatever length it reported.
    explicit operator bool() const { return memory_ != nullptr; }
    // The library's word, which may be anything.
    int reportedLength() const { return reportedLength_; }

    // Believes the reported length, which the caller has checked, as far as the heap gave so much.
    ByteView accept()
    {
        accepted_ = std::min(static_cast<std::size_t>(reportedLength_), memory_ ? _msize(memory_.get()) : 0);
        return view();
    }
    // Empty until the length is believed.
    ByteView view() const { return {memory_.get(), accepted_}; }

private:
    struct WipeAndFree {
        void operator()(unsigned char* memory) const
        {
            wipe(memory, _msize(memory));
            std::free(memory);
        }
    };

    std::unique_ptr<unsigned char, WipeAndFree> memory_;
    int reportedLength_;
    std::size_t accepted_ = 0;
};

} // namespace quelta
