// All that is process-wide: what callers' threads and the device monitor share. Flags are atomic; texts and bytes are immutable
// values swapped whole, so a reader takes one at the start of an operation and goes on with it, whatever is swapped in meanwhile.
#pragma once

#include "base/bytes.h"
#include "base/shared_value.h"
#include "base/wipe.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace quelta {

// Wiped from memory when its last reader drops it.
using PinText = Wiped<std::string>;
// Never null.
using Pin = std::shared_ptr<const PinText>;

class PinCache {
public:
    // The cached PIN; empty when there is none.
    Pin pin() const
    {
        Pin pin = content_.load();
        return pin ? pin : none_;
    }
    // Null while the validated flag is clear.
    Pin pinIfValidated() const { return content_.load(); }
    void setValidated(Pin pin) { content_.store(std::move(pin)); }
    // Empties the cache and takes the validated flag back.
    void clear() { content_.store(nullptr); }

private:
    // Null: not validated, and so nothing cached. Validated with an empty text: the token's own single sign-on.
    SharedValue<PinText> content_;
    const Pin none_ = std::make_shared<const PinText>("");
};

class SharedIv {
public:
    // Never null.
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
    // Set by the first device open that succeeds, cleared by the monitor while no token is connected.
    std::atomic<bool> libraryInitialised = false;
    PinCache pinCache;
    SharedIv sharedIv;
    // PP_USE_HARDWARE_RNG.
    std::atomic<std::uint8_t> hardwareRngFlag = 1;
    // Set by the first query for the container's name, never cleared: from then on a key spec filters nothing.
    std::atomic<std::uint8_t> containerSelectedFlag = 0;
    // The module's own handle, from which the PIN dialog's template is loaded.
    std::atomic<void*> moduleHandle = nullptr;
};

TokenState& tokenState();

// The process's device monitor. It stops by itself when the module is unloaded.
void startDeviceMonitor();
void stopDeviceMonitor();

} // namespace quelta
