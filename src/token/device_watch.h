// What the device monitor does, apart from the thread that it does it on.
#pragma once

#include "token/token_state.h"

#include <atomic>
#include <mutex>

namespace quelta {

class DeviceWatch {
public:
    // `state` must outlive the watch.
    explicit DeviceWatch(TokenState& state) : state_(state) {}

    // True for the caller that is to start the thread: none runs, and no other caller was told so.
    bool begin();
    // Asks, forgets and pauses by turns until it is to stop. `isConnected` asks whether a token is connected.
    void run(bool (*isConnected)() noexcept, void (*pause)() noexcept) noexcept;
    void askToStop() { stopping_ = true; }
    // No thread runs it any more, or could be had.
    void ended() { running_ = false; }

private:
    void forget();

    TokenState& state_;
    std::atomic<bool> running_ = false;
    std::atomic<bool> stopping_ = false;
    std::mutex clearing_;
};

} // namespace quelta
