#include "soak/soak_user.h"

#include "soak/dialogs.h"
#include "soak/weather.h"

#include <regex>

namespace quelta::soak {

using namespace bench;

namespace {

struct Message {
    const char* text;
    Causes by;
    bool cryptoApi, keyStorage;
};

constexpr Message messages[] = {
    {"Invalid user pin\\. Remaining attempts\\([1-9][0-9]*\\)", misled, true, true},
    {"User pin locked, re-initialise device", unplugged | noAttempts, true, true},
    {"System time mismatch, Kidly login to Token Manager", clockOff, true, false},
    {"System time mismatch, Kindly login to Token Manager", clockOff, false, true},
};

// A dialog that comes to the front while it is typed into selects what it has so far, and the next character takes its place.
bool takes(PinDialog dialog, const std::string& pin)
{
    for (int tries = 0; tries < 20; ++tries) {
        dialog.type(pin);
        const std::string text = textOf(dialog.edit());
        if (text == pin) return true;
        if (!pin.ends_with(text)) return false;
        dialog.erase(text.size());
    }
    return false;
}

} // namespace

SoakUser::SoakUser(Board& board, std::size_t process)
    : process_(board.processes[process]),
      thread_(board, process_.threads[userThread], static_cast<std::uint32_t>(board.seed + process)),
      worker_([this](const std::stop_token& stop) {
          for (; !stop.stop_requested(); Sleep(20)) {
              for (const HWND window : visibleDialogs()) meet(window);
          }
      })
{}

void SoakUser::meet(HWND window)
{
    const std::string caption = textOf(window);
    // It may have gone since it was listed.
    if (!IsWindow(window)) return;
    ++thread_.own.count;
    ++thread_.own.dialogs;
    if (caption == pinCaption) {
        givePin(window);
    } else if (caption == messageCaption) {
        acknowledge(window);
    } else {
        thread_.find("A window that nobody expects: " + caption);
        PinDialog(window).close();
    }
    if (!goesAway(window)) thread_.find("A window stays although it was left: " + caption);
}

void SoakUser::givePin(HWND window)
{
    const PinDialog dialog(window);
    const ThreadBoard& caller = callerOf(GetWindowThreadProcessId(window, nullptr));
    const Weather& weather = weatherNow(thread_.board);
    // The row is read before the number, as ever.
    if (weather.causes == 0 && caller.weather == thread_.board.weatherNumber)
        thread_.find(std::string(calls[caller.call].name) +
                     " asks for the PIN although a session is open: look at what it makes of the token's information");
    Given& given = given_[&caller];
    const bool again = std::exchange(given.misled, false);
    given.weather = thread_.board.weatherNumber;
    given.wrong.reset();
    if ((weather.habit == Habit::wrongThenCancel && again) || (weather.habit == Habit::whim && thread_.oneIn(4))) {
        dialog.pressCancel();
    } else if (weather.habit == Habit::whim && thread_.oneIn(4)) {
        dialog.close();
    } else {
        if ((!again || weather.habit == Habit::wrong) && !given.wrong.emplace(thread_.board)) given.wrong.reset();
        given.misled = given.wrong.has_value();
        if (!takes(dialog, given.misled ? wrongPin : rightPin)) thread_.find("The PIN dialog did not take what was typed");
        dialog.pressLogin();
    }
}

void SoakUser::acknowledge(HWND window)
{
    const ThreadBoard& caller = callerOf(GetWindowThreadProcessId(window, nullptr));
    Given& given = given_[&caller];
    judgeMessage(messageOf(window), given, caller);
    given.wrong.reset();
    PostMessageA(window, WM_COMMAND, IDOK, 0);
}

// What the token found lies between the PIN and the message: in another weather than the PIN's it may have been anything. While a
// wrong PIN is on its way, the weather stays.
void SoakUser::judgeMessage(const std::string& message, const Given& given, const ThreadBoard& caller)
{
    const Weather& weather = weatherNow(thread_.board);
    const bool sameWeather = given.weather == thread_.board.weatherNumber;
    const Causes causes = given.wrong ? misled | (weather.causes & noAttempts) : (sameWeather ? weather.causes : ~0U) & ~misled;
    const std::string_view call = calls[caller.call].name;
    const auto isSo = [&](const Message& known) {
        return (call.starts_with("Crypt") ? known.cryptoApi : known.keyStorage) && (known.by & causes) &&
               std::regex_match(message, std::regex(known.text));
    };
    if (std::ranges::none_of(messages, isSo))
        thread_.find(std::string(call) + " (token: " + weather.name + ") says what is not so, or is not its to say: " + message);
}

const ThreadBoard& SoakUser::callerOf(DWORD thread) const
{
    const auto* known = std::ranges::find_if(process_.threads, [=](const auto& board) { return board.thread == thread; });
    return known == std::end(process_.threads) ? thread_.own : *known;
}

} // namespace quelta::soak
