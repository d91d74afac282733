#include "support/machine_registry.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

int fail(const char* reason)
{
    std::fprintf(stderr, "%s\n", reason);
    return 2;
}

int run(int argc, char** argv)
try {
    ::testing::InitGoogleMock(&argc, argv);
    if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
    const quelta::test::PrivateMachineRegistry registry;
    const int result = RUN_ALL_TESTS();
    // Otherwise a filter for a suite that was renamed would pass for ever.
    const bool ranSomething = ::testing::UnitTest::GetInstance()->test_to_run_count() > 0;
    return ranSomething ? result : fail("No test has this name: configure the build again");
} catch (const std::exception& error) {
    return fail(error.what());
}

} // namespace

int main(int argc, char** argv)
{
    const int result = run(argc, argv);
    std::fflush(stdout);
    // No destructor runs. The device monitor's would wait a second in each of the many test processes.
    std::_Exit(result);
}
