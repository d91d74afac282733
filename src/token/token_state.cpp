#include "token/token_state.h"

#include "base/unloading.h"
#include "token/device_monitor.h"

namespace quelta {

namespace {

// Destroys the state at unload, but not at process exit. A thread that is killed while it copies a shared value leaves the spin
// lock locked and the pointer half copied: the destructor must not run then. The memory is released with the process anyway. A
// lock that survives this would help only a call during process exit, and nobody may call a provider then.
struct UnlessTheProcessEnds {
    union {
        TokenState state;
    };

    UnlessTheProcessEnds() : state() {}
    UnlessTheProcessEnds(const UnlessTheProcessEnds&) = delete;
    UnlessTheProcessEnds& operator=(const UnlessTheProcessEnds&) = delete;
    ~UnlessTheProcessEnds()
    {
        if (!processIsExiting()) std::destroy_at(&state);
    }
};

// One object at namespace scope: the monitor is destroyed before the state that it uses. A static local would leak: its guard
// makes the statically linked thread runtime keep a record of the thread, with two handles and a TLS slot, that an unload does
// not release.
struct ProcessWide {
    ExceptionReserve reserve;
    UnlessTheProcessEnds kept;
    DeviceMonitor monitor{kept.state};
};

ProcessWide processWide;

} // namespace

TokenState& tokenState()
{
    return processWide.kept.state;
}

void startDeviceMonitor()
{
    processWide.monitor.start();
}

void stopDeviceMonitor()
{
    processWide.monitor.stop();
}

} // namespace quelta
