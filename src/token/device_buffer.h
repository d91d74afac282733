#pragma once

#include "base/bytes.h"
#include "base/wipe.h"

#include <cstdlib>
#include <memory>
#include <utility>

namespace quelta {

// A buffer that the device library returned through an unsigned char**, with the length it reported. It comes from the C
// runtime's heap and is released as such; what it holds is a secret, and wiped.
class DeviceBuffer {
public:
    // Decryption makes nothing longer: a report that exceeds `inputLength` is not believed, not even to wipe that much, until a
    // caller with a bound of its own accepts it.
    DeviceBuffer(unsigned char* memory, int reportedLength, std::size_t inputLength)
        : memory_(memory, WipeAndFree{plausible(reportedLength, inputLength)}), reportedLength_(reportedLength)
    {}

    // False where the library gave none, whatever length it reported.
    explicit operator bool() const { return memory_ != nullptr; }
    // The library's word, which may be anything.
    int reportedLength() const { return reportedLength_; }

    // Believes the reported length, which the caller has checked.
    ByteView accept()
    {
        memory_.get_deleter().size = static_cast<std::size_t>(reportedLength_);
        accepted_ = memory_.get_deleter().size;
        return view();
    }
    // Empty until the length is believed.
    ByteView view() const { return {memory_.get(), accepted_}; }

private:
    struct WipeAndFree {
        std::size_t size;
        void operator()(unsigned char* memory) const
        {
            wipe(memory, size);
            std::free(memory);
        }
    };
    static std::size_t plausible(int length, std::size_t inputLength)
    {
        return std::cmp_less(length, 0) || std::cmp_greater(length, inputLength) ? 0 : static_cast<std::size_t>(length);
    }

    std::unique_ptr<unsigned char, WipeAndFree> memory_;
    int reportedLength_;
    std::size_t accepted_ = 0;
};

} // namespace quelta
