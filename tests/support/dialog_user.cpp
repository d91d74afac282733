#include "support/dialog_user.h"

#include "resources/resource_ids.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

namespace quelta::test {

namespace {

constexpr const char pinCaption[] = "Verify User Pin";
constexpr const char messageCaption[] = "Quelta";
constexpr int messageTextId = 0xFFFF;
constexpr UINT patience = 5000;

void send(HWND window, UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
{
    DWORD_PTR result = 0;
    SendMessageTimeoutA(window, message, wParam, lParam, SMTO_NORMAL, patience, &result);
}

std::string textOf(HWND window)
{
    std::array<char, 512> text{};
    send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    return text.data();
}

std::vector<HWND> visibleDialogs()
{
    std::vector<HWND> found;
    for (HWND window = nullptr; (window = FindWindowExA(nullptr, window, "#32770", nullptr));) {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == GetCurrentProcessId() && IsWindowVisible(window)) found.push_back(window);
    }
    return found;
}

bool comesTrue(auto condition)
{
    for (int tries = 0; tries < 1000; ++tries, Sleep(5)) {
        if (condition()) return true;
    }
    return false;
}

} // namespace

HWND PinDialog::edit() const
{
    return GetDlgItem(window_, IDC_USER_PIN);
}

void PinDialog::type(const std::string& text) const
{
    for (const char character : text) send(edit(), WM_CHAR, static_cast<unsigned char>(character));
}

void PinDialog::press(HWND button)
{
    if (IsWindowEnabled(button)) send(button, BM_CLICK);
}

void PinDialog::close() const
{
    send(window_, WM_SYSCOMMAND, SC_CLOSE);
}

// Through the dialog's own message loop, which makes of a key what it makes of it.
void PinDialog::pressEnter() const
{
    PostMessageA(edit(), WM_KEYDOWN, VK_RETURN, 1);
    PostMessageA(edit(), WM_KEYUP, VK_RETURN, 1);
}

void PinDialog::waitUntilDrawn() const
{
    comesTrue([this] { return !GetUpdateRect(edit(), nullptr, FALSE) && !GetUpdateRect(window_, nullptr, FALSE); });
    // Answered between two messages only, so after the last drawing.
    send(window_, WM_NULL);
}

std::vector<PinDialog> visiblePinDialogs()
{
    std::vector<PinDialog> dialogs;
    for (const HWND window : visibleDialogs()) {
        if (textOf(window) == pinCaption) dialogs.emplace_back(window);
    }
    return dialogs;
}

// Asleep by turns in place of waiting: a condition variable of this runtime was seen to miss its wake-up under Wine.
DialogUser::DialogUser()
    : thread_([this](const std::stop_token& stop) {
          for (; !stop.stop_requested(); Sleep(5)) {
              if (!watching_) continue;
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

void DialogUser::acknowledges(std::optional<std::string> text)
{
    expect({messageCaption, "OK", [this, text = std::move(text)](HWND window) {
                const std::string shown = textOf(GetDlgItem(window, messageTextId));
                if (text && shown != *text) note("The message box says \"" + shown + "\" in place of \"" + *text + "\"");
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
    watch();
}

void DialogUser::meet(HWND window)
{
    const std::string caption = textOf(window);
    const Step step = stepFor(caption);
    if (std::unique_lock lock(mutex_); const auto listener = listener_) {
        lock.unlock();
        const bool isMessage = caption == messageCaption;
        listener((isMessage ? "message \"" + textOf(GetDlgItem(window, messageTextId)) : "dialog \"" + caption) +
                 "\": " + step.deed);
    }
    step.action(window);
    if (comesTrue([window] { return !IsWindow(window) || !IsWindowVisible(window); })) return;
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

// At once as well: the test may hang in a window for good.
void DialogUser::note(const std::string& failure)
{
    std::fprintf(stderr, "%s\n", failure.c_str());
    const std::lock_guard lock(mutex_);
    failures_.push_back(failure);
}

} // namespace quelta::test
