#include "token/device_watch.h"

#include "log/log_writer.h"

namespace quelta {

bool DeviceWatch::begin()
{
    bool expected = false;
    if (!running_.compare_exchange_strong(expected, true)) return false;
    stopping_ = false;
    return true;
}

void DeviceWatch::run(bool (*isConnected)() noexcept, void (*pause)() noexcept) noexcept
{
    logDebug("Device monitor thread started.");
    running_ = true;
    while (!stopping_) {
        if (!isConnected()) forget();
        pause();
    }
    logDebug("Device monitor thread stopped.");
    running_ = false;
}

void DeviceWatch::forget()
{
    const std::lock_guard lock(clearing_);
    state_.pinCache.clear();
    state_.libraryInitialised = false;
}

} // namespace quelta
