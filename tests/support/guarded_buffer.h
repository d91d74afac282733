#pragma once

#include "base/bytes.h"

#include <windows.h>

#include <cstring>
#include <type_traits>

namespace quelta::test {

// Bytes that end at an inaccessible page: whoever reads or writes past them stops there and then.
class GuardedBuffer {
public:
    static constexpr unsigned char untouched = 0xCD;

    explicit GuardedBuffer(std::size_t size, unsigned char fill = untouched);
    explicit GuardedBuffer(ByteView content);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    template <class T>
    requires std::is_trivially_copyable_v<T>
    static GuardedBuffer of(const T& value)
    {
        return GuardedBuffer(ByteView(reinterpret_cast<const unsigned char*>(&value), sizeof value));
    }

    unsigned char* data() { return begin_; }
    const unsigned char* data() const { return begin_; }
    std::size_t size() const { return size_; }
    // The size as entry points take it.
    DWORD length() const { return static_cast<DWORD>(size_); }

    Bytes first(std::size_t count) const { return {begin_, begin_ + count}; }
    Bytes bytes() const { return first(size_); }
    // Nothing was written at or after `from`.
    bool untouchedFrom(std::size_t from) const;

    // The value at `offset`, however it is aligned.
    template <class T>
    requires std::is_trivially_copyable_v<T> T as(std::size_t offset = 0)
    const
    {
        T value{};
        std::memcpy(&value, begin_ + offset, sizeof value);
        return value;
    }

private:
    void* pages_;
    unsigned char* begin_;
    std::size_t size_;
};

} // namespace quelta::test
