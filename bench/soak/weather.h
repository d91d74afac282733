// What befalls the token and the log while the others work.
#pragma once

#include "soak/board.h"
#include "soak/thread.h"
#include "store/token_state.h"

#include <filesystem>
#include <span>
#include <thread>
#include <vector>

namespace quelta::soak {

constexpr const char rightPin[] = "24680";
constexpr const char wrongPin[] = "13579";

// What a user does at a PIN dialog.
enum class Habit { right, whim, wrongThenRight, wrongThenCancel, wrong };

struct Weather {
    const char* name;
    // What stands against the calls.
    Causes causes;
    Habit habit;
    // Of a token that is plugged in, unlocked and signed on.
    void (*change)(softtoken::TokenState& token);
    // In each round of all of them.
    unsigned times;
};

std::span<const Weather> allWeathers();
const Weather& weatherNow(const Board& board);

// What the weather maker is to do: to leave the token signed on, and rid of what others left behind there; to change the weather
// by itself; to leave it signed on; to have wrong PINs alone; to leave it with two attempts; to give it another PIN; to pull it;
// to leave it signed off.
enum class Season { cleared, changing, resting, wrongPinsAlone, lastAttempts, anotherPin, pulled, signedOff };

// How often there was each weather, and how often the log lost its folder or changed its level.
struct Disturbances {
    std::vector<std::uint64_t> weathers;
    std::uint64_t deletions = 0, levels = 0;
};

// Changes the weather, the log level and the log's folder, and watches that the token is given the wrong PINs that were entered
// on purpose, and no others: all from a thread of its own, since whoever changes the token may have to wait for it. The log level
// is for soak.sh to put back, which outlives a soak that is broken off.
class WeatherMaker {
public:
    WeatherMaker(Board& board, std::uint32_t seed, std::filesystem::path logs);
    WeatherMaker(const WeatherMaker&) = delete;
    WeatherMaker& operator=(const WeatherMaker&) = delete;

    void want(Season season) { wanted_ = season; }
    bool has(Season season) const { return reached_ == season; }
    void stop() { worker_ = {}; }
    // Up to its stop.
    const Disturbances& disturbances() const { return disturbances_; }

private:
    void run(const std::stop_token& stop);
    void turnTo(Season season);
    void turn(std::size_t row, bool nobodyWorks = false);
    std::size_t drawn();
    void judgePins(std::uint64_t tokenHas, bool allAnswered);
    void disturbLog();
    bool logIsThere() const;

    const std::filesystem::path token_;
    const std::filesystem::path logs_;
    const softtoken::StoredPin pin_;
    Thread thread_;
    std::atomic<Season> wanted_ = Season::cleared;
    std::atomic<Season> reached_ = Season::changing;
    // Those of this round that are still to come.
    std::vector<std::size_t> round_;
    // Wrong PINs that were found already.
    std::uint64_t unexplainedPins_ = 0;
    Disturbances disturbances_;
    DWORD level_ = 2;
    // Until when there has to be a log again; 0 while none has to come.
    ULONGLONG logIsDue_ = 0;
    std::jthread worker_;
};

} // namespace quelta::soak
