#include "soak/weather.h"

#include "store/pin.h"
#include "store/token_store.h"

#include <utility>

namespace quelta::soak {

// The token is changed by its own functions, in this process: a start of quelta-token for each change would take longer under
// Wine than some changes are to last.
using namespace softtoken;

namespace {

constexpr const char productKey[] = "Software\\Oskvar\\Quelta";
constexpr const char levelValue[] = "logLevel";
// So many that no number of wrong PINs locks the token unasked.
constexpr int attempts = 1000;

void signOff(TokenState& token)
{
    token.singleSignOnEnabled = token.singleSignOnOpen = false;
}
void unplug(TokenState& token)
{
    token.plugged = false;
}
void expire(TokenState& token)
{
    token.singleSignOnOpen = false;
}

constexpr Weather weathers[] = {
    {"changing", Calm::none, Habit::right, nullptr, 0},
    {"given wrong PINs alone", Calm::none, Habit::wrongThenCancel, signOff, 0},
    {"signed on", Calm::signedOn, Habit::right, [](TokenState&) {}, 4},
    {"signed off", Calm::byPin, Habit::right, signOff, 2},
    {"given wrong PINs", Calm::none, Habit::wrongThenRight, signOff, 1},
    {"unplugged", Calm::none, Habit::whim, unplug, 1},
    {"unplugged and signed off", Calm::none, Habit::whim, [](TokenState& token) { unplug(token), signOff(token); }, 1},
    {"locked", Calm::none, Habit::whim, [](TokenState& token) { signOff(token), token.pin.remaining = 0; }, 1},
    {"expired", Calm::none, Habit::whim, expire, 1},
    {"expired, its clock off", Calm::none, Habit::whim, [](TokenState& token) { expire(token), token.clockMismatch = true; }, 1},
};
constexpr std::size_t changing = 0, wrongPinsAlone = 1, signedOn = 2;

// Nobody uses again what was imported or what CryptGenKey made. Keys of key storage are deleted by whoever made them; what is
// left of those goes when nobody works.
void removeLeftovers(TokenState& token, bool nobodyWorks)
{
    std::erase_if(token.aesKeys, [](const auto& key) { return key.label != "wrapping"; });
    std::erase_if(token.keyPairs, [&](const auto& pair) {
        return pair.label != "rsa" && pair.label != "curve" && (nobodyWorks || pair.algorithm == algorithmRsa2048);
    });
}

} // namespace

std::span<const Weather> allWeathers()
{
    return weathers;
}

const Weather& weatherNow(const Board& board)
{
    return weathers[board.weatherRow];
}

WeatherMaker::WeatherMaker(Board& board, std::uint32_t seed, std::filesystem::path logs)
    : token_(tokenFolder()), logs_(std::move(logs)), thread_(board, board.driver, seed), counts_(std::size(weathers))
{
    changeToken(token_, [](TokenState& state) {
        state.pin = newPin(rightPin, attempts);
        return true;
    });
    worker_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

int WeatherMaker::attemptsLost() const
{
    const Reading token = readToken(token_);
    if (!token || !*token) throw std::runtime_error("The token can't be read any more");
    return (*token)->pin.attempts - (*token)->pin.remaining;
}

void WeatherMaker::run(const std::stop_token& stop)
try {
    constexpr DWORD tick = 20;
    std::size_t ticksLeft = 0;
    for (; !stop.stop_requested(); Sleep(tick), ++thread_.own.count) {
        if (const Season season = wanted_; season != reached_) turnTo(season);
        watchPin();
        if (reached_ != Season::changing) continue;
        disturbLog();
        if (ticksLeft-- > 0) continue;
        turn(drawn());
        ticksLeft = 15 + thread_.below(100);
    }
} catch (const std::exception& error) {
    thread_.find(std::string("The token could not be changed: ") + error.what());
}

void WeatherMaker::turnTo(Season season)
{
    if (season != Season::changing) turn(season == Season::wrongPinsAlone ? wrongPinsAlone : signedOn, season == Season::cleared);
    reached_ = season;
}

// All of them come up before one comes again.
std::size_t WeatherMaker::drawn()
{
    if (round_.empty())
        for (std::size_t row = 0; row < std::size(weathers); ++row) round_.insert(round_.end(), weathers[row].times, row);
    std::swap(round_[thread_.below(round_.size())], round_.back());
    const std::size_t row = round_.back();
    round_.pop_back();
    return row;
}

// The row and the number change in an order in which nobody takes what is before or after a calm for a part of it.
void WeatherMaker::turn(std::size_t row, bool nobodyWorks)
{
    Board& board = thread_.board;
    board.weatherRow = changing;
    ++board.weatherNumber;
    thread_.ask("changing the token", [&] {
        while (board.wrongDone != board.wrongBegun && board.stage != Stage::over) Sleep(5);
        watchPin();
        changeToken(token_, [&](TokenState& state) {
            state.plugged = state.singleSignOnEnabled = state.singleSignOnOpen = true;
            state.clockMismatch = false;
            state.pin.remaining = state.pin.attempts;
            removeLeftovers(state, nobodyWorks);
            weathers[row].change(state);
            return true;
        });
        return true;
    });
    wrongBefore_ = board.wrongBegun;
    ++board.weatherNumber;
    board.weatherRow = row;
    ++counts_[row];
}

// Wrong PINs are counted before they are entered, and the token is read before they are looked at.
void WeatherMaker::watchPin()
{
    const int lost = attemptsLost();
    const std::uint32_t wrong = thread_.board.wrongBegun - wrongBefore_;
    // All of them are gone where the token was locked.
    if (lost < attempts && std::cmp_greater(lost, wrong))
        thread_.find(std::string("quelta_validatePassword (token: ") + weatherNow(thread_.board).name +
                     ") was given a wrong PIN that nobody entered: look at who calls it, and with which PIN");
}

void WeatherMaker::disturbLog()
{
    constexpr DWORD levels[] = {0, 2, 3};
    if (thread_.oneIn(100)) {
        const DWORD level = levels[thread_.below(std::size(levels))];
        RegSetKeyValueA(HKEY_LOCAL_MACHINE, productKey, levelValue, REG_DWORD, &level, sizeof level);
    }
    std::error_code ignored;
    if (thread_.oneIn(250)) std::filesystem::remove_all(logs_, ignored);
}

} // namespace quelta::soak
