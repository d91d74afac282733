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
    {"changing", ~Causes{0}, Habit::right, nullptr, 0},
    {"given wrong PINs alone", noSession | userLeaves, Habit::wrongThenCancel, signOff, 0},
    {"left with two attempts", noSession | noAttempts, Habit::wrong,
     [](TokenState& token) { signOff(token), token.pin.remaining = 2; }, 0},
    {"given another PIN", noSession, Habit::right,
     [](TokenState& token) { signOff(token), token.pin = newPin(wrongPin, attempts); }, 0},
    {"signed on", 0, Habit::right, [](TokenState&) {}, 4},
    {"unplugged", unplugged | userLeaves, Habit::whim, unplug, 1},
    {"unplugged and signed off", unplugged | userLeaves, Habit::whim, [](TokenState& token) { unplug(token), signOff(token); },
     1},
    {"signed off", noSession, Habit::right, signOff, 2},
    {"given wrong PINs", noSession, Habit::wrongThenRight, signOff, 1},
    {"locked", noSession | noAttempts | userLeaves, Habit::whim,
     [](TokenState& token) { signOff(token), token.pin.remaining = 0; }, 1},
    {"expired", noSession | userLeaves, Habit::whim, expire, 1},
    {"expired, its clock off", noSession | userLeaves | clockOff, Habit::whim,
     [](TokenState& token) { expire(token), token.clockMismatch = true; }, 1},
};

constexpr std::size_t rowOf(std::string_view name)
{
    return static_cast<std::size_t>(std::ranges::find(weathers, name, &Weather::name) - weathers);
}

// The changing season draws one after the other.
constexpr std::size_t ofSeason[] = {rowOf("signed on"),
                                    rowOf("changing"),
                                    rowOf("signed on"),
                                    rowOf("given wrong PINs alone"),
                                    rowOf("left with two attempts"),
                                    rowOf("given another PIN"),
                                    rowOf("unplugged"),
                                    rowOf("signed off")};
static_assert(std::ranges::max(ofSeason) < std::size(weathers));

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
    : token_(tokenFolder()), logs_(std::move(logs)), pin_(newPin(rightPin, attempts)), thread_(board, board.driver, seed)
{
    disturbances_.weathers.resize(std::size(weathers));
    worker_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
}

void WeatherMaker::run(const std::stop_token& stop)
try {
    constexpr DWORD tick = 20;
    std::size_t ticksLeft = 0;
    for (; !stop.stop_requested(); Sleep(tick), ++thread_.own.count) {
        if (const Season season = wanted_; season != reached_) turnTo(season);
        const Reading token = readToken(token_);
        if (!token || !*token) throw std::runtime_error("it can't be read any more");
        judgePins((*token)->wrongPins, false);
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
    if (season != Season::changing) turn(ofSeason[static_cast<std::size_t>(season)], season == Season::cleared);
    logIsDue_ = 0;
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
    board.weatherRow = rowOf("changing");
    ++board.weatherNumber;
    thread_.ask("changing the token", [&] {
        // Where as many were done as had begun after that look, none was on its way in between.
        const auto someAreOnTheirWay = [&] {
            const std::uint32_t done = board.wrongDone;
            return done != board.wrongBegun;
        };
        while (someAreOnTheirWay() && board.stage != Stage::over) Sleep(5);
        changeToken(token_, [&](TokenState& state) {
            judgePins(state.wrongPins, true);
            state.plugged = state.singleSignOnEnabled = state.singleSignOnOpen = true;
            state.clockMismatch = false;
            state.pin = pin_;
            removeLeftovers(state, nobodyWorks);
            weathers[row].change(state);
            return true;
        });
        return true;
    });
    ++board.weatherNumber;
    board.weatherRow = row;
    ++disturbances_.weathers[row];
}

// They are counted before they are entered, and the token was read before: it may lack some that are on their way, never have
// more.
void WeatherMaker::judgePins(std::uint64_t tokenHas, bool allAnswered)
{
    const std::uint64_t entered = thread_.board.wrongEntered + unexplainedPins_;
    if (allAnswered ? tokenHas == entered : tokenHas <= entered) return;
    thread_.find(std::string("quelta_validatePassword (token: ") + weatherNow(thread_.board).name +
                 ") was given another number of wrong PINs than were entered: look at who calls it, and with which PIN");
    unexplainedPins_ += tokenHas - entered;
}

void WeatherMaker::disturbLog()
{
    constexpr DWORD levels[] = {0, 2, 3};
    constexpr ULONGLONG patience = 10'000;
    if (logIsDue_ != 0) {
        if (GetTickCount64() > logIsDue_)
            thread_.find("At level 3 no log came again after its folder was deleted: look at what the module prints");
        else if (!logIsThere())
            return;
        logIsDue_ = 0;
    }
    if (const DWORD level = levels[thread_.below(std::size(levels))]; level != level_ && thread_.oneIn(100)) {
        level_ = level;
        RegSetKeyValueA(HKEY_LOCAL_MACHINE, productKey, levelValue, REG_DWORD, &level_, sizeof level_);
        ++disturbances_.levels;
    }
    std::error_code error;
    if (!thread_.oneIn(100) || std::filesystem::remove_all(logs_, error) == 0 || error) return;
    ++disturbances_.deletions;
    if (level_ == 3) logIsDue_ = GetTickCount64() + patience;
}

bool WeatherMaker::logIsThere() const
{
    std::error_code ignored;
    return std::ranges::any_of(std::filesystem::recursive_directory_iterator(logs_, ignored),
                               [](const auto& entry) { return entry.path().extension() == ".LOG"; });
}

} // namespace quelta::soak
