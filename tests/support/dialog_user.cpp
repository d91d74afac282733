#include "support/dialog_user.h"

#include "resources/resource_ids.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace quelta::test {

namespace {

using namespace std::chrono_literals;

constexpr const char pinCaption[] = "Verify User Pin";
constexpr const char messageCaption[] = "Quelta";
constexpr int messageTextId = 0xFFFF;
constexpr UINT patience = 5000;

LRESULT send(HWND window, UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
{
    DWORD_PTR result = 0;
    SendMessageTimeoutA(window, message, wParam, lParam, SMTO_NORMAL, patience, &result);
    return static_cast<LRESULT>(result);
}

void press(HWND button)
{
    if (IsWindowEnabled(button)) send(button, BM_CLICK);
}

std::string textOfWindow(HWND window)
{
    std::array<char, 512> text{};
    send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    return text.data();
}

std::string textOfMessage(HWND window)
{
    return textOfWindow(GetDlgItem(window, messageTextId));
}

BOOL CALLBACK findOwnDialog(HWND window, LPARAM found)
{
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    std::array<char, 16> name{};
    GetClassNameA(window, name.data(), static_cast<int>(name.size()));
    const bool isDialog = std::string_view(name.data()) == "#32770" && IsWindowVisible(window);
    if (isDialog && process == GetCurrentProcessId()) reinterpret_cast<std::vector<HWND>*>(found)->push_back(window);
    return TRUE;
}

std::vector<HWND> visibleDialogs()
{
    std::vector<HWND> found;
    EnumWindows(findOwnDialog, reinterpret_cast<LPARAM>(&found));
    return found;
}

// Without a screen no window could ever appear, and the test would wait for it.
void needScreen()
{
    static const bool there = [] {
        const HWND window = CreateWindowA("STATIC", "", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
        return window && DestroyWindow(window);
    }();
    if (!there) throw std::runtime_error("No window can be made: start an X server, set DISPLAY to it, and run the tests again");
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

void PinDialog::erase(std::size_t characters) const
{
    for (; characters > 0; --characters) send(edit(), WM_CHAR, VK_BACK);
}

std::string PinDialog::text() const
{
    return textOfWindow(edit());
}

void PinDialog::pressLogin() const
{
    press(loginButton());
}

void PinDialog::pressCancel() const
{
    press(cancelButton());
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
    const auto undrawn = [this] { return GetUpdateRect(edit(), nullptr, FALSE) || GetUpdateRect(window_, nullptr, FALSE); };
    for (int tries = 0; tries < 400 && undrawn(); ++tries) std::this_thread::sleep_for(5ms);
    // Answered between two messages only, so after the last drawing.
    send(window_, WM_NULL);
}

std::vector<PinDialog> visiblePinDialogs()
{
    std::vector<PinDialog> dialogs;
    for (const HWND window : visibleDialogs()) {
        if (textOfWindow(window) == pinCaption) dialogs.emplace_back(window);
    }
    return dialogs;
}

DialogUser::DialogUser() : thread_([this](const std::stop_token& stop) { run(stop); }) {}

DialogUser::~DialogUser()
{
    thread_.request_stop();
    watch();
    thread_.join();
    for (const auto& failure : failures_) ADD_FAILURE() << failure;
    for (const auto& step : steps_) ADD_FAILURE() << "This window never came: " << step.caption;
}

void DialogUser::entersPin(std::string pin)
{
    const auto deed = pin + ", Login";
    meetsPinDialog(
        [pin = std::move(pin)](PinDialog dialog) {
            dialog.type(pin);
            dialog.pressLogin();
        },
        deed);
}

void DialogUser::cancels()
{
    meetsPinDialog([](PinDialog dialog) { dialog.pressCancel(); }, "Cancel");
}

void DialogUser::closes()
{
    meetsPinDialog([](PinDialog dialog) { dialog.close(); }, "closed");
}

void DialogUser::meetsPinDialog(std::function<void(PinDialog)> action, std::string deed)
{
    expectWindow({pinCaption, std::move(deed), [action = std::move(action)](HWND window) { action(PinDialog(window)); }});
}

void DialogUser::acknowledges(std::optional<std::string> text)
{
    expectWindow({messageCaption, "OK", [this, text = std::move(text)](HWND window) {
                      const std::string shown = textOfMessage(window);
                      if (text && shown != *text) note("The message box says \"" + shown + "\" in place of \"" + *text + "\"");
                      PostMessageA(window, WM_COMMAND, IDOK, 0);
                  }});
}

void DialogUser::onWindow(std::function<void(const std::string&)> listener)
{
    const std::lock_guard lock(mutex_);
    listener_ = std::move(listener);
}

void DialogUser::expectWindow(Step step)
{
    needScreen();
    {
        const std::lock_guard lock(mutex_);
        steps_.push_back(std::move(step));
    }
    watch();
}

void DialogUser::watch()
{
    SetEvent(awake_.get());
}

void DialogUser::run(const std::stop_token& stop)
{
    WaitForSingleObject(awake_.get(), INFINITE);
    while (!stop.stop_requested()) {
        if (const auto windows = visibleDialogs(); !windows.empty()) meet(windows.front());
        std::this_thread::sleep_for(5ms);
    }
}

void DialogUser::meet(HWND window)
{
    const std::string caption = textOfWindow(window);
    Step step{caption, "nobody expected it", [](HWND unexpected) { send(unexpected, WM_SYSCOMMAND, SC_CLOSE); }};
    std::function<void(const std::string&)> listener;
    {
        const std::lock_guard lock(mutex_);
        if (!steps_.empty() && steps_.front().caption == caption) {
            step = std::move(steps_.front());
            steps_.pop_front();
        } else {
            failures_.push_back("A window that nobody expected: " + caption);
        }
        listener = listener_;
    }
    if (listener) {
        const bool isMessage = caption == messageCaption;
        listener((isMessage ? "message \"" + textOfMessage(window) : "dialog \"" + caption) + "\": " + step.deed);
    }
    step.action(window);
    waitUntilLeft(window);
}

void DialogUser::waitUntilLeft(HWND window)
{
    for (int tries = 0; tries < 1000; ++tries) {
        if (!IsWindow(window) || !IsWindowVisible(window)) return;
        std::this_thread::sleep_for(5ms);
    }
    note("A window stays although it was left");
    // Said at once as well: the test may hang in this window for good.
    std::fprintf(stderr, "A window stays although it was left\n");
    PostMessageA(window, WM_COMMAND, IDCANCEL, 0);
}

void DialogUser::note(std::string failure)
{
    const std::lock_guard lock(mutex_);
    failures_.push_back(std::move(failure));
}

} // namespace quelta::test
