#pragma once

#include "base/bytes.h"

#include <windows.h>

namespace quelta::test {

// Written behind a buffer that the fake library hands out, by which its release is known.
constexpr unsigned char deviceBufferMark[] = {0xB0, 0xFF, 0xE5, 0x0F, 0xD3, 0x51, 0xCE, 0x77};

// While it lives, every block of the C runtime's heap that this executable's code frees on its thread is looked at first.
class FreedMemory {
public:
    explicit FreedMemory(ByteView secret);
    ~FreedMemory();
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    int blocks() const { return blocks_; }
    // Those that held the secret, at their begin or anywhere.
    int withSecretFirst() const { return withSecretFirst_; }
    int withSecret() const { return withSecret_; }
    int deviceBuffers() const { return deviceBuffers_; }

    void look(ByteView block);

private:
    ByteView secret_;
    DWORD thread_ = GetCurrentThreadId();
    int blocks_ = 0;
    int withSecretFirst_ = 0;
    int withSecret_ = 0;
    int deviceBuffers_ = 0;
};

} // namespace quelta::test
