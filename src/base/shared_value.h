#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace quelta {

// A value that threads share. The value never changes but is replaced whole. A reader keeps the value that it has read.
//
// A spin lock guards the pointer for the few instructions of a copy or a swap. Nothing is called, allocated or freed under it.
// std::atomic<std::shared_ptr> of libstdc++ 12 has a data race: after a read it releases its lock with relaxed order. Other locks
// look up their wait functions through the loader at the first wait. A thread that an unload waits for must not need the loader.
template <class T>
class SharedValue {
public:
    // Returns null before the first store.
    std::shared_ptr<const T> load() const
    {
        const SpinLock lock(taken_);
        return value_;
    }

    void store(std::shared_ptr<const T> next)
    {
        {
            const SpinLock lock(taken_);
            value_.swap(next);
        }
        // The old value is freed here, after the lock was released.
        next.reset();
    }

private:
    class SpinLock {
    public:
        explicit SpinLock(std::atomic_flag& taken) : taken_(taken)
        {
            // The holder of the lock may be waiting for a processor.
            while (taken_.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
        }
        ~SpinLock() { taken_.clear(std::memory_order_release); }
        SpinLock(const SpinLock&) = delete;
        SpinLock& operator=(const SpinLock&) = delete;

    private:
        std::atomic_flag& taken_;
    };

    mutable std::atomic_flag taken_;
    std::shared_ptr<const T> value_;
};

} // namespace quelta
