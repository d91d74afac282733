// What befalls the token and the log while the others work.
#pragma once

#include "soak/board.h"
#include "soak/thread.h"
#include "store/token_state.h"

#include <filesystem>
#include <optional>
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

// Changes the weather, the log level and the log's folder from a thread of its own, and watches that the token loses no attempts
// at its PIN but those that were wrong on purpose. In the end the log level is as it was.
class WeatherMaker {
public:
    WeatherMaker(Board& board, std::filesystem::path logs);
    ~WeatherMaker();
    WeatherMaker(const WeatherMaker&) = delete;
    WeatherMaker& operator=(const WeatherMaker&) = delete;

    // Whether it changes by itself. When it does not, the token is signed on. Nobody may work yet where it begins.
    void begin();
    void end();
    // For the last ones.
    void expectWrongPinsAlone();
    int attemptsLost() const;
    // How often there was each.
    const std::vector<std::uint64_t>& counts() const { return counts_; }

private:
    void run(const std::stop_token& stop);
    void turn(std::size_t row, bool nobodyWorks = false);
    void watchPin();
    void disturbLog();

    const std::filesystem::path token_;
    const std::filesystem::path logs_;
    const std::optional<DWORD> levelBefore_;
    Thread thread_;
    std::uint32_t wrongBefore_ = 0;
    std::vector<std::uint64_t> counts_;
    std::jthread worker_;
};

} // namespace quelta::soak
