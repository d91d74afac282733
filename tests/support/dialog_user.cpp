#include "support/dialog_user.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace quelta::test {

namespace {

int visibleButtons(HWND box)
{
    int count = 0;
    for (HWND button = nullptr; (button = FindWindowExA(box, button, "Button", nullptr)) != nullptr;)
        count += IsWindowVisible(button) ? 1 : 0;
    return count;
}

} // namespace

// The thread sleeps and looks again. A condition variable of this runtime once missed its wake-up under Wine.
DialogUser::DialogUser()
    : thread_([this](const std::stop_token& stop) {
          for (; !stop.stop_requested(); Sleep(5)) {
              if (const auto windows = visibleDialogs(); !windows.empty()) meet(windows.front());
          }
      })
{}

DialogUser::~DialogUser()
{
    thread_.request_stop();
    thread_.join();
    for (const auto& failure : failures_) ADD_FAILURE() << failure;
    for (const auto& step : steps_) ADD_FAILURE() << "This window never came: " << step.caption;
}

void DialogUser::entersPin(const std::string& pin)
{
    const auto enter = [pin](PinDialog dialog) {
        dialog.type(pin);
        dialog.pressLogin();
    };
    meetsPinDialog(enter, pin + ", Login");
}

void DialogUser::meetsPinDialog(std::function<void(PinDialog)> action, std::string deed)
{
    expect({pinCaption, std::move(deed), [action = std::move(action)](HWND window) { action(PinDialog(window)); }});
}

void DialogUser::acknowledges()
{
    expect({messageCaption, "OK", [this](HWND window) {
                // Only a message box with OK alone has one button.
                if (visibleButtons(window) != 1) note("The message box has other buttons than OK: " + messageOf(window));
                PostMessageA(window, WM_COMMAND, IDOK, 0);
            }});
}

void DialogUser::onWindow(std::function<void(const std::string&)> listener)
{
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void DialogUser::expect(Step step)
{
    const std::lock_guard lock(mutex_);
    steps_.push_back(std::move(step));
}

void DialogUser::meet(HWND window)
{
    const std::string caption = textOf(window);
    const Step step = stepFor(caption);
    if (std::unique_lock lock(mutex_); const auto listener = listener_) {
        lock.unlock();
        const bool isMessage = caption == messageCaption;
        listener((isMessage ? "message \"" + messageOf(window) : "dialog \"" + caption) + "\": " + step.deed);
    }
    step.action(window);
    if (goesAway(window)) return;
    note("A window stays although it was left: " + caption);
    PostMessageA(window, WM_COMMAND, IDCANCEL, 0);
}

DialogUser::Step DialogUser::stepFor(const std::string& caption)
{
    {
        const std::lock_guard lock(mutex_);
        if (!steps_.empty() && steps_.front().caption == caption) {
            Step step = std::move(steps_.front());
            steps_.pop_front();
            return step;
        }
    }
    note("A window that nobody expected: " + caption);
    return {caption, "nobody expected it", [](HWND window) { PinDialog(window).close(); }};
}

// Prints the failure at once as well, since the test may hang in a window.
void DialogUser::note(const std::string& failure)
{
    std::fprintf(stderr, "%s\n", failure.c_str());
    const std::lock_guard lock(mutex_);
    failures_.push_back(failure);
}

} // namespace quelta::test
