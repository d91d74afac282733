#include "support/scenario.h"

#include "token/device_monitor.h"

namespace quelta::test {

class DeviceMonitorTranscript : public Scenario {
protected:
    void start()
    {
        recorder.recordInner("startDeviceMonitor", "", [] {
            startDeviceMonitor();
            return "done";
        });
    }
    void stop()
    {
        recorder.recordInner("stopDeviceMonitor", "", [] {
            stopMonitor();
            return "done";
        });
    }
};

// What the thread writes itself stands where it comes to it, and is not here.
TEST_F(DeviceMonitorTranscript, IsStartedOnceAndStoppedOnce)
{
    start();
    stop();
    stop();
    start();
    start();
    stopMonitor();
}

} // namespace quelta::test
