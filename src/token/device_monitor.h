// The module's only thread of its own: asks once a second whether a token is connected, and while none is, forgets the PIN and
// that the library was initialised. It runs until the module is unloaded.
#pragma once

namespace quelta {

// Starts the monitor unless it is running. Without a thread to be had, nothing is started and the next call tries again.
void startDeviceMonitor();

// Sets the stop flag, waits until nothing of the loop runs any more (up to one poll interval and one library call), then says so
// in the log. Runs by itself when the module is unloaded.
void stopDeviceMonitor();

} // namespace quelta
