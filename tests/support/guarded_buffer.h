#pragma once

#include "encoding/little_endian.h"

#include <windows.h>

namespace quelta::test {

// Bytes that end at an inaccessible page. Code that reads or writes past them crashes at once.
class GuardedBuffer {
public:
    static constexpr unsigned char untouched = 0xCD;

    explicit GuardedBuffer(std::size_t size, unsigned char fill = untouched);
    explicit GuardedBuffer(ByteView content);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    unsigned char* data() { return begin_; }
    const unsigned char* data() const { return begin_; }
    std::size_t size() const { return size_; }
    // Returns the size in the type that entry points take.
    DWORD length() const { return static_cast<DWORD>(size_); }

    Bytes first(std::size_t count) const { return {begin_, begin_ + count}; }
    Bytes bytes() const { return first(size_); }

    // Returns the number in the first four bytes.
    DWORD asNumber() const { return readU32({begin_, size_}, 0); }

private:
    void* pages_;
    unsigned char* begin_;
    std::size_t size_;
};

} // namespace quelta::test
