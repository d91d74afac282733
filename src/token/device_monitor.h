// Polls once a second whether a token is connected, on a thread of the process's pool. While no token is connected, clears the
// PIN cache and the library-initialised flag. Runs until the module is unloaded.
#pragma once

#include "base/windows_objects.h"
#include "token/device_watch.h"

namespace quelta {

class DeviceMonitor {
public:
    // `state` must outlive the monitor.
    explicit DeviceMonitor(TokenState& state) : watch_(state) {}
    ~DeviceMonitor() { stop(); }
    DeviceMonitor(const DeviceMonitor&) = delete;
    DeviceMonitor& operator=(const DeviceMonitor&) = delete;

    // Starts the loop unless it is running. If no thread is available, nothing starts and the next call tries again.
    void start();

    // Sets the stop flag, waits until the loop has ended (up to one poll interval and one library call) and logs the end. At
    // process exit it neither waits nor logs.
    void stop();

private:
    static void CALLBACK onThread(PTP_CALLBACK_INSTANCE, void* monitor, PTP_WORK);
    bool submit();

    DeviceWatch watch_;
    ThreadpoolWork work_;
};

} // namespace quelta
