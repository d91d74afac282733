#pragma once

#include "base/bytes.h"

#include <windows.h>

#include <atomic>

namespace quelta::test {

class FreedMemory;

// Counts the use of the C runtime's heap by this executable's code on the test's thread, through new and through malloc.
struct Heap {
    static constexpr int all = -1;

    // The number of blocks made, less the number of blocks freed.
    long long live = 0;
    // How many more blocks are made before one is refused. Later blocks are made again.
    int left = all;
    bool refused = false;
    std::atomic<FreedMemory*> watch = nullptr;
};
// Counting begins with the first call. Its thread is the test's.
Heap& heap();

// While an object lives, the heap makes `allowed` blocks and refuses the next one.
class RefusedAllocation {
public:
    explicit RefusedAllocation(int allowed)
    {
        heap_.refused = false;
        heap_.left = allowed;
    }
    ~RefusedAllocation() { heap_.left = Heap::all; }
    RefusedAllocation(const RefusedAllocation&) = delete;
    RefusedAllocation& operator=(const RefusedAllocation&) = delete;

private:
    Heap& heap_ = heap();
};

// While an object lives, every block is searched for the secret before it is freed.
class FreedMemory {
public:
    explicit FreedMemory(ByteView secret);
    ~FreedMemory() { heap_.watch = nullptr; }
    FreedMemory(const FreedMemory&) = delete;
    FreedMemory& operator=(const FreedMemory&) = delete;

    // The number of freed blocks that began with the secret, and of those that held it anywhere. An emptied text has its first
    // byte overwritten: that counts as a beginning, too.
    int withSecretFirst = 0;
    int withSecret = 0;

    void look(ByteView block);

private:
    Heap& heap_ = heap();
    ByteView secret_;
};

} // namespace quelta::test
