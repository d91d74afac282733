#include "token/device_monitor.h"

#include "base/unloading.h"
#include "log/log_writer.h"
#include "token/device_library.h"

namespace quelta {

namespace {

constexpr DWORD pollInterval = 1000;

} // namespace

void DeviceMonitor::start()
{
    bool expected = false;
    if (!running_.compare_exchange_strong(expected, true)) {
        logDebug("Monitor thread already running, not starting again.");
        return;
    }
    stopping_ = false;
    if (!submit()) {
        running_ = false;
        return;
    }
    logDebug("Monitor thread started (startDeviceMonitor).");
}

void DeviceMonitor::stop()
{
    stopping_ = true;
    if (work_ && !processIsExiting()) {
        // A thread of its own would have to be joined here, under the loader's lock, which a thread needs to end: a deadlock. A
        // thread of the process's pool only has to come back from the callback. One that has not begun is cancelled.
        WaitForThreadpoolWorkCallbacks(work_.get(), TRUE);
        work_.reset();
        logDebug("Monitor thread joined (stopDeviceMonitor).");
    }
    // Where the process is exiting, its end closes this.
    static_cast<void>(work_.release());
    running_ = false;
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
    static_cast<DeviceMonitor*>(monitor)->run();
}

void DeviceMonitor::run() noexcept
{
    logDebug("Device monitor thread started.");
    running_ = true;
    while (!stopping_) {
        poll();
        Sleep(pollInterval);
    }
    logDebug("Device monitor thread stopped.");
    running_ = false;
}

void DeviceMonitor::poll() noexcept
{
    try {
        if (!deviceLibrary().getConnectedDeviceList(false, nullptr).empty()) return;
    } catch (...) {
        // Not a sign that the token is gone; the next poll asks again.
        return;
    }
    const std::lock_guard lock(clearing_);
    state_.pinCache.clear();
    state_.libraryInitialised = false;
}

} // namespace quelta
