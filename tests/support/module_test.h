#pragma once

#include "support/dialog_user.h"
#include "support/fake_device_library.h"
#include "support/log_folder.h"

#include "token/token_state.h"

#include <gtest/gtest.h>

namespace quelta::test {

// Throw if a call that prepares a test has failed. They take the Boolean of Windows or CryptoAPI, or the status of key storage.
void require(BOOL done, const char* what);
void requireStatus(LONG status, const char* what);

// For tests of the module's code in this process. A test begins with the process-wide state as after loading, one connected token
// with the PIN "1234", log level 3, an empty log, and the running device monitor. A test of the monitor's start stops it first.
class ModuleTest : public ::testing::Test {
protected:
    ModuleTest();
    ~ModuleTest() override;

    static void cachePin(const char* pin = "1234");
    static std::string cachedPin() { return **tokenState().pinCache.pin(); }

    // Starts the monitor and waits for a poll. Then the monitor has written its first lines.
    static void startMonitor();
    // When the second poll begins, the monitor has handled what the first one found.
    void waitForTwoPolls()
    {
        for (int i = 0; i < 2; ++i) require(token.waitForMonitorPoll(), "the device monitor's poll");
    }
    // Takes up to a second.
    static void stopMonitor();

    FakeDeviceLibrary& token = FakeDeviceLibrary::instance();
    LogFolder log;
    DialogUser user;
};

} // namespace quelta::test
