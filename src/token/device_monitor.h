// The module's only thread of its own: asks once a second whether a token is connected, and while none is, forgets the PIN and
// that the library was initialised. It runs until the module is unloaded.
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

    // Starts the loop unless it is running. Without a thread to be had, nothing is started and the next call tries again.
    void start();

    // Sets the stop flag, waits until nothing of the loop runs any more (up to one poll interval and one library call), then says
    // so in the log.
    void stop();

private:
    static void CALLBACK onThread(PTP_CALLBACK_INSTANCE, void* monitor, PTP_WORK);
    bool submit();

    DeviceWatch watch_;
    ThreadpoolWork work_;
};

} // namespace quelta
