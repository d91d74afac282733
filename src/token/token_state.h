// All process-wide state, which callers' threads and the device monitor share. Flags are atomic. Texts and bytes are immutable
// and replaced whole: a reader takes a value at the start of an operation and keeps it, whatever replaces it meanwhile.
#pragma once

#include "base/bytes.h"
#include "base/shared_value.h"
#include "base/wipe.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace quelta {

// The text of a PIN, wiped from memory when the last reader releases it.
using PinText = Wiped<std::string>;
using Pin = std::shared_ptr<const PinText>;

class PinCache {
public:
    // Returns the cached PIN; never null, but empty if there is none.
    Pin pin() const
    {
        Pin pin = content_.load();
        return pin ? pin : none_;
    }
    // Returns null while the validated flag is clear.
    Pin pinIfValidated() const { return content_.load(); }
    void setValidated(Pin pin) { content_.store(std::move(pin)); }
    // Empties the cache and clears the validated flag.
    void clear() { content_.store(nullptr); }

private:
    // Null means not validated, with nothing cached. An empty text means validated by the token's own single sign-on.
    SharedValue<PinText> content_;
    const Pin none_ = std::make_shared<const PinText>("");
};

class SharedIv {
public:
    // Returns the IV; never null, but empty if none is set.
    std::shared_ptr<const Bytes> bytes() const
    {
        auto bytes = bytes_.load();
        return bytes ? bytes : none_;
    }
    void set(ByteView iv) { bytes_.store(std::make_shared<const Bytes>(iv.begin(), iv.end())); }
    void clear() { bytes_.store(nullptr); }

private:
    SharedValue<Bytes> bytes_;
    const std::shared_ptr<const Bytes> none_ = std::make_shared<const Bytes>();
};

struct TokenState {
    // Set by the first device open that succeeds; cleared by the monitor while no token is connected.
    std::atomic<bool> libraryInitialised = false;
    PinCache pinCache;
    SharedIv sharedIv;
    // The value of PP_USE_HARDWARE_RNG.
    std::atomic<std::uint8_t> hardwareRngFlag = 1;
    // Set by the first query for the container's name and never cleared. While it is set, the key spec does not filter keys.
    std::atomic<std::uint8_t> containerSelectedFlag = 0;
    // The module's own handle. The PIN dialog's template is loaded from this module.
    std::atomic<void*> moduleHandle = nullptr;
};

TokenState& tokenState();

// Start and stop the process's device monitor. Unloading the module also stops the monitor.
void startDeviceMonitor();
void stopDeviceMonitor();

} // namespace quelta
