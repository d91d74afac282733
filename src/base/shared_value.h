#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace quelta {

// A value that threads share. It never changes, but is replaced whole; whoever has read it keeps what was read.
//
// Not std::atomic<std::shared_ptr>: that of libstdc++ 12 lets go of its lock with relaxed order when it has read, so that the
// next writer's access is not ordered after the read, and by the standard the two race. Others wait for their lock by means that
// are looked up at the first wait, and a thread for which an unloading waits must need no loader. Here a turn is taken for the
// few instructions of a copy or a swap, in which nothing is called, allocated or freed.
template <class T>
class SharedValue {
public:
    // Null before the first store.
    std::shared_ptr<const T> load() const
    {
        const Turn turn(taken_);
        return value_;
    }

    void store(std::shared_ptr<const T> next)
    {
        {
            const Turn turn(taken_);
            value_.swap(next);
        }
        // What was there goes here, in nobody's turn.
        next.reset();
    }

private:
    class Turn {
    public:
        explicit Turn(std::atomic_flag& taken) : taken_(taken)
        {
            // Who has it may be waiting for a processor.
            while (taken_.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
        }
        ~Turn() { taken_.clear(std::memory_order_release); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        std::atomic_flag& taken_;
    };

    mutable std::atomic_flag taken_;
    std::shared_ptr<const T> value_;
};

} // namespace quelta
