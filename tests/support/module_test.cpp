#include "support/module_test.h"

#include "support/machine_registry.h"

#include "token/device_monitor.h"
#include "token/token_state.h"

#include <windows.h>

#include <stdexcept>

namespace quelta::test {

namespace {

bool monitorRuns = false;

void resetState()
{
    TokenState& state = tokenState();
    state.libraryInitialised = false;
    state.pinCache.clear();
    state.sharedIv.clear();
    state.hardwareRngFlag = 1;
    state.containerSelectedFlag = 0;
    // This executable holds the dialog's template as the module does.
    state.moduleHandle = GetModuleHandleA(nullptr);
}

} // namespace

void require(BOOL done, const char* what)
{
    if (!done) throw std::runtime_error(std::string(what) + " failed with " + std::to_string(GetLastError()));
}

void requireStatus(LONG status, const char* what)
{
    if (status != 0) throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
}

ModuleTest::ModuleTest()
{
    token.reset();
    setLogLevel(3);
    if (!monitorRuns) startMonitor();
    // A poll that found nothing may be about to clear the state. When the next poll comes, this is done.
    if (token.lastMonitorPollFoundNothing()) token.waitForMonitorPoll();
    resetState();
    log.forget();
}

ModuleTest::~ModuleTest()
{
    token.reset();
}

void ModuleTest::cachePin(const char* pin)
{
    tokenState().pinCache.setValidated(std::make_shared<const PinText>(pin));
}

void ModuleTest::startMonitor()
{
    startDeviceMonitor();
    if (!FakeDeviceLibrary::instance().waitForMonitorPoll()) ADD_FAILURE() << "The device monitor does not poll";
    monitorRuns = true;
}

void ModuleTest::stopMonitor()
{
    stopDeviceMonitor();
    monitorRuns = false;
}

} // namespace quelta::test
