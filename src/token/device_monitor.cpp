#include "token/device_monitor.h"

#include "log/log_writer.h"
#include "token/device_library.h"
#include "token/token_state.h"

#include <windows.h>

#include <atomic>
#include <memory>
#include <mutex>

namespace quelta {

namespace {

constexpr DWORD pollInterval = 1000;

struct CloseWork {
    void operator()(PTP_WORK work) const { CloseThreadpoolWork(work); }
};
using Work = std::unique_ptr<TP_WORK, CloseWork>;

// At the end of a process its other threads are gone before the module is told, so that nobody is left to wait for.
bool processIsExiting()
{
    using Query = BOOLEAN(NTAPI*)();
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    const auto query =
        ntdll ? reinterpret_cast<Query>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlDllShutdownInProgress"))) : nullptr;
    return query && query();
}

class DeviceMonitor {
public:
    // What the loop and the destructor use must outlive this object, so it has to be built first.
    DeviceMonitor()
    {
        tokenState();
        deviceLibrary();
    }
    ~DeviceMonitor() { stop(); }

    void start()
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

    void stop()
    {
        stopping_ = true;
        if (work_ && !processIsExiting()) {
            // A thread of its own would have to be joined here, under the loader's lock, which a thread needs to end: a deadlock.
            // A thread of the process's pool only has to come back from the callback. One that has not begun is cancelled.
            WaitForThreadpoolWorkCallbacks(work_.get(), TRUE);
            work_.reset();
            logDebug("Monitor thread joined (stopDeviceMonitor).");
        }
        // Closed by the end of the process.
        static_cast<void>(work_.release());
        running_ = false;
    }

private:
    bool submit()
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

    static void CALLBACK onThread(PTP_CALLBACK_INSTANCE, void* monitor, PTP_WORK) { static_cast<DeviceMonitor*>(monitor)->run(); }

    void run() noexcept
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

    void poll() noexcept
    {
        try {
            if (!deviceLibrary().getConnectedDeviceList(false, nullptr).empty()) return;
        } catch (...) {
            // Not a sign that the token is gone; the next poll asks again.
            return;
        }
        const std::lock_guard lock(clearing_);
        tokenState().pinCache.clear();
        tokenState().libraryInitialised = false;
    }

    std::atomic<bool> running_ = false;
    std::atomic<bool> stopping_ = false;
    std::mutex clearing_;
    Work work_;
};

DeviceMonitor& deviceMonitor()
{
    static DeviceMonitor monitor;
    return monitor;
}

} // namespace

void startDeviceMonitor()
{
    deviceMonitor().start();
}

void stopDeviceMonitor()
{
    deviceMonitor().stop();
}

} // namespace quelta
