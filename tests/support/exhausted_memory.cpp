#include "support/exhausted_memory.h"

#include "support/machine_registry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

constexpr int never = -1;
thread_local long long live = 0;
thread_local int allocationsLeft = never;
thread_local bool refused = false;
thread_local std::size_t largest = 0;

void release(void* memory) noexcept
{
    if (memory) --live;
    std::free(memory);
}

} // namespace

// The executable's own: the array forms and the sized ones come here, too.
void* operator new(std::size_t size)
{
    if (allocationsLeft == 0) {
        allocationsLeft = never;
        refused = true;
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) --allocationsLeft;
    largest = std::max(largest, size);
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    ++live;
    return memory;
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

namespace quelta::test {

namespace {

// False once no allocation was left to refuse.
bool tryRefusing(int allowed, FakeDeviceLibrary& token, const CallWithoutMemory& row, bool logged)
{
    const auto liveBefore = live;
    const int changesBefore = token.changes;
    bool succeeded = false;
    {
        const RefusedAllocation refusal(allowed);
        succeeded = row.call();
    }
    if (succeeded) {
        row.undo();
    } else {
        EXPECT_EQ(token.changes, changesBefore) << "the token was changed, and then allocation " << allowed << " was refused";
        row.expectFailure();
    }
    token.takeCalls();
    EXPECT_EQ(live, liveBefore) << "leaked when allocation " << allowed << " was refused";
    const bool lineMayBeLost = logged && succeeded;
    EXPECT_TRUE(succeeded == !refused || lineMayBeLost) << "allocation " << allowed;
    return refused;
}

} // namespace

long long liveAllocations()
{
    return live;
}

LargestAllocation::LargestAllocation()
{
    largest = 0;
}

std::size_t LargestAllocation::size() const
{
    return largest;
}

RefusedAllocation::RefusedAllocation(int allowed)
{
    refused = false;
    allocationsLeft = allowed;
}

RefusedAllocation::~RefusedAllocation()
{
    allocationsLeft = never;
}

bool RefusedAllocation::happened() const
{
    return refused;
}

void expectCleanFailures(FakeDeviceLibrary& token, const CallWithoutMemory& row)
{
    const ::testing::ScopedTrace trace(__FILE__, __LINE__, row.name);
    for (const bool logged : {false, true}) {
        setLogLevel(logged ? 3 : 0);
        ASSERT_TRUE(row.call());
        row.undo();
        token.takeCalls();
        // What is said of the lost lines.
        ::testing::internal::CaptureStdout();
        for (int allowed = 0; tryRefusing(allowed, token, row, logged) && !::testing::Test::HasFailure();) ++allowed;
        ::testing::internal::GetCapturedStdout();
    }
    setLogLevel(0);
}

} // namespace quelta::test
