// Callers' threads and the device monitor's loop use the process-wide state as in the module. ThreadSanitizer reports each access
// that is not ordered. The counters here use relaxed order, so that they order nothing themselves.
#include "log/log_writer.h"
#include "token/device_watch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <latch>
#include <thread>

namespace quelta {

void logPieces(int, std::initializer_list<LogPiece>) noexcept {}

namespace {

constexpr int callers = 6;
// In each life the module is loaded, used by all callers and unloaded. All callers begin at the same moment.
constexpr int lives = 1000;
constexpr int rounds = 40;
constexpr auto unordered = std::memory_order_relaxed;

std::atomic<int> polls = 0;
std::atomic<std::ptrdiff_t> letters = 0;

bool isConnected() noexcept
{
    return polls.fetch_add(1, unordered) % 3 != 0;
}

void pause() noexcept
{
    std::this_thread::yield();
}

void readWhole(const std::string& text)
{
    letters.fetch_add(std::ranges::count(text, 'a'), unordered);
}

class Process {
public:
    void call(int number)
    {
        for (int round = 0; round < rounds; ++round) {
            open();
            usePin(number, round);
            state_.hardwareRngFlag = static_cast<std::uint8_t>(round % 2);
            state_.containerSelectedFlag = 1;
        }
    }
    // The module's unloading does this when no caller is left.
    bool stop()
    {
        watch_.askToStop();
        monitor_.join();
        watch_.ended();
        return started_.load(unordered) == 1;
    }

private:
    void open()
    {
        if (watch_.begin()) {
            started_.fetch_add(1, unordered);
            monitor_ = std::thread([this] { watch_.run(isConnected, pause); });
        }
        if (!state_.libraryInitialised) state_.libraryInitialised = true;
    }
    // The PIN is set, read at the start of an operation, and dropped when the sign-on has expired.
    void usePin(int number, int round)
    {
        if (!state_.pinCache.pinIfValidated() || round % 5 == 0)
            state_.pinCache.setValidated(std::make_shared<const PinText>(std::string(20, 'a')));
        const Pin pin = state_.pinCache.pin();
        if (round % 7 == number) state_.pinCache.clear();
        if (const Pin again = state_.pinCache.pinIfValidated()) readWhole(**again);
        readWhole(**pin);
    }

    TokenState state_;
    DeviceWatch watch_{state_};
    std::thread monitor_;
    std::atomic<int> started_ = 0;
};

int run()
{
    int startedOnce = 0;
    for (int life = 0; life < lives; ++life) {
        Process process;
        {
            std::latch ready(callers);
            std::array<std::jthread, callers> threads;
            for (int number = 0; number < callers; ++number) {
                threads[static_cast<std::size_t>(number)] = std::jthread([&, number] {
                    ready.arrive_and_wait();
                    process.call(number);
                });
            }
        }
        startedOnce += process.stop();
    }
    std::printf("%d polls, %d of %d times started once\n", polls.load(), startedOnce, lives);
    return startedOnce == lives && polls > lives ? 0 : 1;
}

} // namespace

} // namespace quelta

int main()
{
    return quelta::run();
}
