#include "soak/soak_user.h"

#include "soak/dialogs.h"
#include "soak/weather.h"

namespace quelta::soak {

using namespace bench;

namespace {

constexpr std::string_view messages[] = {
    "Invalid user pin. Remaining attempts(",
    "User pin locked, re-initialise device",
    "System time mismatch, Kidly login to Token Manager",
    "System time mismatch, Kindly login to Token Manager",
};

} // namespace

SoakUser::SoakUser(Board& board, ThreadBoard& own, std::uint32_t seed)
    : thread_(board, own, seed), worker_([this](const std::stop_token& stop) {
          for (; !stop.stop_requested(); Sleep(20))
              for (const HWND window : visibleDialogs()) meet(window);
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
    const DWORD asking = GetWindowThreadProcessId(window, nullptr);
    const Habit habit = weatherNow(thread_.board).habit;
    const bool wasMisled = misled_.contains(asking);
    if ((habit == Habit::wrongThenCancel && wasMisled) || (habit == Habit::whim && thread_.oneIn(4))) {
        dialog.pressCancel();
    } else if (habit == Habit::whim && thread_.oneIn(4)) {
        dialog.close();
    } else {
        if (!wasMisled && !misled_[asking].emplace(thread_.board)) misled_.erase(asking);
        const std::string pin = !wasMisled && misled_.contains(asking) ? wrongPin : rightPin;
        dialog.type(pin);
        if (textOf(dialog.edit()) != pin) thread_.find("The PIN dialog did not take what was typed");
        dialog.pressLogin();
    }
    if (wasMisled) misled_.erase(asking);
}

void SoakUser::acknowledge(HWND window)
{
    const std::string message = messageOf(window);
    if (std::ranges::none_of(messages, [&](auto known) { return message.starts_with(known); }))
        thread_.find("A message that nobody expects: " + message);
    if (const auto asking = misled_.find(GetWindowThreadProcessId(window, nullptr)); asking != misled_.end())
        asking->second.reset();
    PostMessageA(window, WM_COMMAND, IDOK, 0);
}

} // namespace quelta::soak
