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
enum class Habit { right, whim, wrongThenRight, wrongThenCancel };

struct Weather {
    const char* name;
    Calm calm;
    Habit habit;
    // Of a token that is plugged in, unlocked and signed on.
    void (*change)(softtoken::TokenState& token);
    // In each round of all of them.
    unsigned times;
};

std::span<const Weather> allWeathers();
const Weather& weatherNow(const Board& board);

// What the weather maker is to do: to leave the token signed on, and rid of what others left behind there; to change the weather
// by itself; to leave it signed on; to have wrong PINs alone.
enum class Season { cleared, changing, resting, wrongPinsAlone };

// Changes the weather, the log level and the log's folder, and watches that the token loses no attempts at its PIN but those that
// were wrong on purpose: all from a thread of its own, since whoever changes the token may have to wait for it. The log level is
// for soak.sh to put back, which outlives a soak that is broken off.
class WeatherMaker {
public:
    WeatherMaker(Board& board, std::uint32_t seed, std::filesystem::path logs);
    WeatherMaker(const WeatherMaker&) = delete;
    WeatherMaker& operator=(const WeatherMaker&) = delete;

    void want(Season season) { wanted_ = season; }
    bool has(Season season) const { return reached_ == season; }
    void stop() { worker_ = {}; }
    int attemptsLost() const;
    // How often there was each, up to its stop.
    const std::vector<std::uint64_t>& counts() const { return counts_; }

private:
    void run(const std::stop_token& stop);
    void turnTo(Season season);
    void turn(std::size_t row, bool nobodyWorks = false);
    std::size_t drawn();
    void watchPin();
    void disturbLog();

    const std::filesystem::path token_;
    const std::filesystem::path logs_;
    Thread thread_;
    std::atomic<Season> wanted_ = Season::cleared;
    std::atomic<Season> reached_ = Season::changing;
    // Those of this round that are still to come.
    std::vector<std::size_t> round_;
    std::uint32_t wrongBefore_ = 0;
    std::vector<std::uint64_t> counts_;
    std::jthread worker_;
};

} // namespace quelta::soak
