#include "support/module_test.h"

#include <atomic>
#include <regex>
#include <stdexcept>

namespace quelta::test {

class DeviceMonitor : public ModuleTest {
protected:
    DeviceMonitor() { fillState(); }

    // Sets the state as after an opening and an accepted PIN.
    static void fillState()
    {
        tokenState().libraryInitialised = true;
        cachePin();
        tokenState().sharedIv.set(counting(16));
        tokenState().containerSelectedFlag = 1;
    }
    static bool openingIsKnown() { return tokenState().libraryInitialised && tokenState().pinCache.pinIfValidated(); }
    static bool openingIsForgotten()
    {
        return !tokenState().libraryInitialised && !tokenState().pinCache.pinIfValidated() && cachedPin().empty();
    }

    int pollsDuring(DWORD milliseconds)
    {
        const int before = token.monitorPolls();
        Sleep(milliseconds);
        return token.monitorPolls() - before;
    }
};

TEST_F(DeviceMonitor, StartingTwiceRunsOneThreadThatPollsOnceASecond)
{
    startDeviceMonitor();
    startDeviceMonitor();
    const int polls = pollsDuring(2500);
    EXPECT_GE(polls, 2);
    EXPECT_LE(polls, 3);
}

TEST_F(DeviceMonitor, ForgetsAtEveryPollThatFindsNoToken)
{
    waitForTwoPolls();
    EXPECT_TRUE(openingIsKnown()) << "nothing is lost while it is there";
    token.unplug();
    for (int i = 0; i < 2; ++i) {
        fillState();
        waitForTwoPolls();
        EXPECT_TRUE(openingIsForgotten());
    }
    EXPECT_EQ(*tokenState().sharedIv.bytes(), counting(16)) << "no property of the token";
    EXPECT_EQ(tokenState().containerSelectedFlag, 1);
}

TEST_F(DeviceMonitor, FailingPollIsNoRemovalAndNoEnd)
{
    token.during(Call::monitorPoll, [] { throw std::runtime_error("the library is in trouble"); });
    waitForTwoPolls();
    EXPECT_TRUE(openingIsKnown());
}

TEST_F(DeviceMonitor, StopWaitsForTheThreadAndSaysSoAfterIt)
{
    stopMonitor();
    log.forget();
    startMonitor();
    std::atomic<bool> inPoll = false;
    std::atomic<bool> pollLeft = false;
    token.unplug();
    token.during(Call::monitorPoll, [&] {
        inPoll = true;
        Sleep(400);
        pollLeft = true;
    });
    while (!inPoll) Sleep(5);
    fillState();
    stopMonitor();
    EXPECT_TRUE(pollLeft) << "no poll outlives the stop";
    EXPECT_TRUE(openingIsForgotten()) << "and what the last one found is done";
    const std::string text = log.takeText();
    const std::regex inOrder(
        R"(=>Device monitor thread started\.\n[\s\S]*=>Device monitor thread stopped\.\n.*=>Monitor thread joined)");
    EXPECT_TRUE(std::regex_search(text, inOrder)) << text;
    EXPECT_EQ(pollsDuring(1200), 0);
}

} // namespace quelta::test
