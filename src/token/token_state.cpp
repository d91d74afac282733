#include "token/token_state.h"

#include "base/unloading.h"
#include "token/device_monitor.h"

namespace quelta {

namespace {

// A thread that the process's end kills while it copies a shared value leaves its turn taken, with half a pointer inside: the
// destructor must not run then, and need not, for the memory goes with the process. Nothing that can't be left like that was
// taken in its place, since it would matter to a call during the process's end alone, and nobody may call a provider from there.
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

// One object at namespace scope: the monitor is gone before what it uses is. And not a static of a function: the guard of such a
// one makes the statically linked thread runtime keep a record of the thread, with two handles and a TLS slot, that no unloading
// releases.
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
