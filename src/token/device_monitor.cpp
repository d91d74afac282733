#include "token/device_monitor.h"

#include "base/unloading.h"
#include "log/log_writer.h"
#include "token/device_library.h"

namespace quelta {

namespace {

void pause() noexcept
{
    Sleep(1000);
}

bool isConnected() noexcept
{
    try {
        return !deviceLibrary().getConnectedDeviceList(false, nullptr).empty();
    } catch (...) {
        // An exception does not mean that the token is gone. The next poll asks again.
        return true;
    }
}

} // namespace

void DeviceMonitor::start()
{
    if (!watch_.begin()) {
        logDebug("Monitor thread already running, not starting again.");
        return;
    }
    if (!submit()) {
        watch_.ended();
        return;
    }
    logDebug("Monitor thread started (startDeviceMonitor).");
}

void DeviceMonitor::stop()
{
    watch_.askToStop();
    if (work_ && !processIsExiting()) {
        // A queued callback is cancelled, a running one only has to return. Joining a thread here would deadlock: the caller
        // holds the loader lock, and a thread needs that lock to end. So the loop runs in the process's thread pool.
        WaitForThreadpoolWorkCallbacks(work_.get(), TRUE);
        work_.reset();
        logDebug("Monitor thread joined (stopDeviceMonitor).");
    }
    // At process exit the work object is not closed here: the end of the process does that.
    static_cast<void>(work_.release());
    watch_.ended();
}

bool DeviceMonitor::submit()
{
    TP_CALLBACK_ENVIRON environment;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackRunsLong(&environment);
    work_.reset(CreateThreadpoolWork(&DeviceMonitor::onThread, this, &environment));
    DestroyThreadpoolEnvironment(&environment);
    if (!work_) return false;
    SubmitThreadpoolWork(work_.get());
    return true;
}

void CALLBACK DeviceMonitor::onThread(PTP_CALLBACK_INSTANCE, void* monitor, PTP_WORK)
{
    static_cast<DeviceMonitor*>(monitor)->watch_.run(isConnected, pause);
}

} // namespace quelta
