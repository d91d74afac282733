#pragma once

#include "support/fake_device_library.h"

namespace quelta::test {

// Of this thread, with operator new.
struct Allocations {
    static constexpr int all = -1;

    // Made, less freed.
    long long live = 0;
    std::size_t largest = 0;
    // How many more succeed; the one after that is refused, and then they succeed again.
    int left = all;
    bool refused = false;
};
Allocations& allocations();

// While it lives, the largest single allocation of this thread is measured.
class LargestAllocation {
public:
    LargestAllocation() { allocations().largest = 0; }
    std::size_t size() const { return allocations().largest; }
};

// While it lives, this thread's allocations succeed `allowed` times, and one is refused.
class RefusedAllocation {
public:
    explicit RefusedAllocation(int allowed)
    {
        allocations().refused = false;
        allocations().left = allowed;
    }
    ~RefusedAllocation() { allocations().left = Allocations::all; }
    RefusedAllocation(const RefusedAllocation&) = delete;
    RefusedAllocation& operator=(const RefusedAllocation&) = delete;

    // Whether it came to that.
    bool happened() const { return allocations().refused; }
};

struct CallWithoutMemory {
    const char* name;
    // True for a success.
    std::function<bool()> call;
    // After a success: frees what was handed out.
    std::function<void()> undo = [] {};
    // After a failure: how it looks.
    std::function<void()> expectFailure = [] {};
};

// Every allocation of the call is refused in turn, first with nothing logged, then with all: a line of the log that finds no
// memory is only lost. Each time nothing is left behind, and a call that has changed the token does not fail.
void expectCleanFailures(FakeDeviceLibrary& token, const CallWithoutMemory& row);

} // namespace quelta::test
