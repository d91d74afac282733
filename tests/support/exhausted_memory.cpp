#include "support/exhausted_memory.h"

#include "support/machine_registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

namespace {

constinit thread_local quelta::test::Allocations ofThread;

} // namespace

// The executable's own: the array forms and the sized ones come here, too.
void* operator new(std::size_t size)
{
    auto& [live, largest, left, refused] = ofThread;
    largest = std::max(largest, size);
    const bool refuse = left == 0;
    if (left != ofThread.all) --left;
    if (refuse) refused = true;
    void* const memory = refuse ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    ++live;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory) --ofThread.live;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

namespace quelta::test {

namespace {

// False once no allocation was left to refuse.
bool tryRefusing(int allowed, FakeDeviceLibrary& token, const CallWithoutMemory& row, bool logged)
{
    const auto liveBefore = allocations().live;
    const int changesBefore = token.changes;
    const bool succeeded = [&] {
        const RefusedAllocation refusal(allowed);
        return row.call();
    }();
    if (succeeded) {
        row.undo();
    } else {
        EXPECT_EQ(token.changes, changesBefore) << "the token was changed, and then allocation " << allowed << " was refused";
        row.expectFailure();
    }
    token.takeCalls();
    EXPECT_EQ(allocations().live, liveBefore) << "leaked when allocation " << allowed << " was refused";
    const bool lineMayBeLost = logged && succeeded;
    EXPECT_TRUE(succeeded == !allocations().refused || lineMayBeLost) << "allocation " << allowed;
    return allocations().refused;
}

} // namespace

Allocations& allocations()
{
    return ofThread;
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
