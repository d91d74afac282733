#pragma once

#include "base/bytes.h"
#include "base/wipe.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

namespace quelta {

// Owns a buffer that the device library returns through an unsigned char**, with its reported length. The buffer comes from the C
// runtime's heap. It holds a secret, so the whole heap block is wiped before it is freed.
class DeviceBuffer {
public:
    DeviceBuffer() = default;
    DeviceBuffer(DeviceBuffer&& other) noexcept
        : memory_(std::exchange(other.memory_, nullptr)), length_(std::exchange(other.length_, 0))
    {}
    DeviceBuffer& operator=(DeviceBuffer&& other) noexcept
    {
        std::swap(memory_, other.memory_);
        std::swap(length_, other.length_);
        return *this;
    }
    ~DeviceBuffer()
    {
        if (!memory_) return;
        wipe(memory_, blockSize().value_or(length_ < 0 ? 0 : static_cast<std::size_t>(length_)));
        std::free(memory_);
    }

    // The library writes the buffer and its length here. The buffer is then owned, even if the library throws afterwards.
    unsigned char** place() { return &memory_; }
    int* lengthPlace() { return &length_; }

    // False if the library returned no buffer, whatever length it reported.
    explicit operator bool() const { return memory_ != nullptr; }
    // Returns the length as the library reported it, unchecked.
    int reportedLength() const { return length_; }

    // Returns the bytes; nullopt for no buffer, a negative length, or a length above `most` or above the heap block.
    std::optional<ByteView> upTo(std::size_t most) const
    {
        if (!memory_ || length_ < 0) return std::nullopt;
        const auto length = static_cast<std::size_t>(length_);
        if (length > std::min(most, blockSize().value_or(most))) return std::nullopt;
        return ByteView(memory_, length);
    }

private:
    // Returns nullopt if the heap does not know the block.
    std::optional<std::size_t> blockSize() const
    {
        const std::size_t size = _msize(memory_);
        if (size == static_cast<std::size_t>(-1)) return std::nullopt;
        return size;
    }

    unsigned char* memory_ = nullptr;
    int length_ = 0;
};

} // namespace quelta
