#include "support/module_test.h"

#include "token/device_monitor.h"
#include "token/token_state.h"

#include <windows.h>

#include <atomic>
#include <regex>
#include <stdexcept>

namespace quelta::test {

class DeviceMonitor : public ModuleTest {
protected:
    // As an opening and an accepted PIN leave it.
    static void fillState()
    {
        tokenState().libraryInitialised = true;
        tokenState().pinCache.setValidated(std::make_shared<const PinText>("1234"));
        tokenState().sharedIv.set(counting(16));
        tokenState().containerSelectedFlag = 1;
    }

    static bool tokenStateIsEmpty()
    {
        const TokenState& state = tokenState();
        return !state.libraryInitialised && !state.pinCache.validated() && (*state.pinCache.pin())->empty();
    }

    // True once `condition` holds; false if it does not within the limit.
    template <class Condition>
    static bool within(ULONGLONG milliseconds, Condition condition)
    {
        for (const ULONGLONG end = GetTickCount64() + milliseconds; GetTickCount64() < end; Sleep(5)) {
            if (condition()) return true;
        }
        return condition();
    }

    int pollsDuring(DWORD milliseconds)
    {
        const int before = token.monitorPolls();
        Sleep(milliseconds);
        return token.monitorPolls() - before;
    }
};

TEST_F(DeviceMonitor, StartingTwiceRunsOneThread)
{
    startDeviceMonitor();
    startDeviceMonitor();
    const int polls = pollsDuring(2500);
    EXPECT_GE(polls, 2);
    EXPECT_LE(polls, 3) << "one a second";
}

TEST_F(DeviceMonitor, ForgetsTheTokenWithinASecondOfItsRemoval)
{
    fillState();
    ASSERT_TRUE(token.waitForMonitorPoll());
    ASSERT_TRUE(token.waitForMonitorPoll());
    EXPECT_TRUE(tokenState().libraryInitialised && tokenState().pinCache.validated()) << "nothing is lost while it is there";

    token.unplug();
    EXPECT_TRUE(within(1500, tokenStateIsEmpty));
    EXPECT_EQ(*tokenState().sharedIv.bytes(), counting(16)) << "no property of the token";
    EXPECT_EQ(tokenState().containerSelectedFlag, 1);

    fillState();
    EXPECT_TRUE(within(1500, tokenStateIsEmpty)) << "again at every poll, as long as it is gone";
}

TEST_F(DeviceMonitor, FailingPollIsNoRemovalAndNoEnd)
{
    fillState();
    token.duringMonitorPoll([] { throw std::runtime_error("the library is in trouble"); });
    ASSERT_TRUE(token.waitForMonitorPoll());
    ASSERT_TRUE(token.waitForMonitorPoll());
    EXPECT_TRUE(tokenState().libraryInitialised && tokenState().pinCache.validated());
}

TEST_F(DeviceMonitor, StopWaitsForTheThreadAndSaysSoAfterIt)
{
    std::atomic<bool> inPoll = false;
    std::atomic<bool> pollLeft = false;
    token.duringMonitorPoll([&] {
        inPoll = true;
        Sleep(400);
        pollLeft = true;
    });
    ASSERT_TRUE(within(2000, [&] { return inPoll.load(); }));
    stopMonitor();
    EXPECT_TRUE(pollLeft) << "no poll outlives the stop";
    const std::string text = log.takeText();
    const std::regex stoppedThenJoined(R"(monitor thread stopped\.\n.*=>Monitor thread joined \(stopDeviceMonitor\)\.\n$)");
    EXPECT_TRUE(std::regex_search(text, stoppedThenJoined)) << text;
    token.duringMonitorPoll(nullptr);
    EXPECT_EQ(pollsDuring(1200), 0);

    stopMonitor();
    EXPECT_EQ(log.takeText(), "") << "nothing ran any more";
}

TEST_F(DeviceMonitor, CanBeStoppedAndStartedTwentyTimes)
{
    for (int round = 0; round < 20; ++round) {
        stopMonitor();
        startDeviceMonitor();
        // Every other time the stop comes before the thread has come to anything.
        if (round % 2 == 0) {
            ASSERT_TRUE(token.waitForMonitorPoll()) << "round " << round;
        }
    }
    stopMonitor();
    EXPECT_EQ(pollsDuring(1200), 0);
}

} // namespace quelta::test
