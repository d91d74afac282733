#pragma once

#include "support/fake_device_library.h"

#include <cstddef>
#include <functional>

namespace quelta::test {

// Of this thread: what it has allocated with operator new, less what it has freed.
long long liveAllocations();

// While it lives, the largest single allocation of this thread is measured.
class LargestAllocation {
public:
    LargestAllocation();
    std::size_t size() const;
};

// While it lives, this thread's allocations succeed `allowed` times; the one after that is refused, and then they succeed again.
class RefusedAllocation {
public:
    explicit RefusedAllocation(int allowed);
    ~RefusedAllocation();
    RefusedAllocation(const RefusedAllocation&) = delete;
    RefusedAllocation& operator=(const RefusedAllocation&) = delete;

    // Whether it came to that.
    bool happened() const;
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
