// The polling loop of the device monitor, without the thread that runs the loop.
#pragma once

#include "token/token_state.h"

#include <atomic>
#include <mutex>

namespace quelta {

class DeviceWatch {
public:
    // `state` must outlive the watch.
    explicit DeviceWatch(TokenState& state) : state_(state) {}

    // True if no thread runs the loop. The caller then starts the thread, or calls ended(). Only one caller gets true.
    bool begin();
    // Runs the loop until askToStop(). While `isConnected` returns false, clears the PIN and the initialised flag.
    void run(bool (*isConnected)() noexcept, void (*pause)() noexcept) noexcept;
    void askToStop() { stopping_ = true; }
    // Records that no thread runs the loop: the thread has ended or could not be started.
    void ended() { running_ = false; }

private:
    void forget();

    TokenState& state_;
    std::atomic<bool> running_ = false;
    std::atomic<bool> stopping_ = false;
    std::mutex clearing_;
};

} // namespace quelta
