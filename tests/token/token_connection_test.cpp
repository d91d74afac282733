#include "support/module_test.h"

#include "token/token_connection.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;

constexpr OpeningTexts texts = {.startingLibrary = "starting", .noToken = "no token", .openFailed = "open failed : "};
const LogLine monitorRuns = debug("Monitor thread already running, not starting again.");

std::expected<std::string, OpeningFailure> open(void* libContext = nullptr)
{
    return openFirstToken(libContext, texts);
}

} // namespace

using TokenConnection = ModuleTest;

TEST_F(TokenConnection, FirstOpeningStartsTheLibraryAndOpensTheFirstTokenOfSeveral)
{
    token.connect({"FIRST", "SECOND"});
    EXPECT_EQ(open(), "FIRST");
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false)", "initDevice(FIRST, false)"));
    expectLog({debug("starting"), monitorRuns});
    EXPECT_TRUE(tokenState().libraryInitialised);

    token.connect({"SECOND", "FIRST"});
    EXPECT_EQ(open(), "SECOND");
    EXPECT_THAT(token.takeCalls(), ElementsAre("getConnectedDeviceList(false)")) << "opened once for the process";
    expectLog({monitorRuns});
}

TEST_F(TokenConnection, LibraryContextGoesWhereverThereIsRoomForIt)
{
    int context = 0;
    open(&context);
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false, with a context)",
                                               "initDevice(TOKEN-1, false, with a context)"));
}

TEST_F(TokenConnection, LibraryIsStartedAgainUntilADeviceWasOpened)
{
    token.unplug();
    token.willAnswer(Call::init, 7);
    EXPECT_EQ(open(), std::unexpected(OpeningFailure::noToken));
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false)"));
    expectLog({debug("starting"), monitorRuns, error("no token")});

    token.connect({"TOKEN-1"});
    token.willAnswer(Call::initDevice, -21);
    EXPECT_EQ(open(), std::unexpected(OpeningFailure::deviceOpenFailed));
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false)", "initDevice(TOKEN-1, false)"));
    expectLog({debug("starting"), monitorRuns, error("open failed : -21")});
    EXPECT_FALSE(tokenState().libraryInitialised);

    EXPECT_EQ(open(), "TOKEN-1");
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false)", "initDevice(TOKEN-1, false)"));
}

TEST_F(TokenConnection, MonitorIsStartedBeforeTheDevicesAreAskedFor)
{
    stopMonitor();
    bool asked = false;
    token.during(Call::getConnectedDeviceList, [&] {
        asked = true;
        EXPECT_TRUE(token.waitForMonitorPoll());
    });
    EXPECT_EQ(open(), "TOKEN-1");
    EXPECT_TRUE(asked);
    startMonitor();
}

} // namespace quelta::test
