#include "token/token_state.h"

#include "base/unloading.h"
#include "base/wipe.h"
#include "token/device_monitor.h"

namespace quelta {

namespace {

// One object at namespace scope: the monitor is gone before what it uses is. And not a static of a function: the guard of such a
// one makes the statically linked thread runtime keep a record of the thread, with two handles and a TLS slot, that no unloading
// releases.
struct ProcessWide {
    ExceptionReserve reserve;
    TokenState state;
    DeviceMonitor monitor{state};
};

ProcessWide processWide;

} // namespace

PinText::~PinText()
{
    wipe(text_.data(), text_.size());
}

Pin PinCache::pin() const
{
    const Pin pin = content_.load();
    return pin ? pin : none_;
}

std::shared_ptr<const Bytes> SharedIv::bytes() const
{
    const auto bytes = bytes_.load();
    return bytes ? bytes : none_;
}

TokenState& tokenState()
{
    return processWide.state;
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
