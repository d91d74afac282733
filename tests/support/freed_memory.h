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

    int blocks = 0;
    // Those that held the secret, at their begin (or behind the one byte that a text overwrites when it is emptied) or anywhere.
    int withSecretFirst = 0;
    int withSecret = 0;
    int deviceBuffers = 0;

    void look(ByteView block);

private:
    ByteView secret_;
    DWORD thread_ = GetCurrentThreadId();
};

} // namespace quelta::test
