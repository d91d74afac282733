#pragma once

#include <windows.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace quelta::test {

// The PIN dialog as a user meets it.
class PinDialog {
public:
    explicit PinDialog(HWND window) : window_(window) {}

    HWND window() const { return window_; }
    HWND edit() const;
    HWND loginButton() const { return GetDlgItem(window_, IDOK); }
    HWND cancelButton() const { return GetDlgItem(window_, IDCANCEL); }

    // Character by character, at the end of what is there.
    void type(const std::string& text) const;
    void erase(std::size_t characters) const;
    std::string text() const;
    bool loginAllowed() const { return IsWindowEnabled(loginButton()) != FALSE; }

    // A button that is disabled can't be pressed: nothing happens then.
    void pressLogin() const;
    void pressCancel() const;
    void close() const;
    void pressEnter() const;
    // Has nothing left to draw.
    void waitUntilDrawn() const;

private:
    HWND window_;
};

// Those that are on the screen now, of this process.
std::vector<PinDialog> visiblePinDialogs();

// Sits before the screen while a test runs: meets the windows of this process in the order that it was told, and with what it was
// told. A window that it was not told of, a message with another text and a window that never came are failures of the test.
class DialogUser {
public:
    DialogUser();
    ~DialogUser();
    DialogUser(const DialogUser&) = delete;
    DialogUser& operator=(const DialogUser&) = delete;

    void entersPin(std::string pin);
    void cancels();
    void closes();
    // Whatever `action` does; it must end with the dialog being left. It runs on another thread than the test.
    void meetsPinDialog(std::function<void(PinDialog)> action, std::string deed = "");
    // Presses OK in the next message box; with this text, where one is given.
    void acknowledges(std::optional<std::string> text = std::nullopt);

    // Told, on another thread than the test's, of each window that comes and of what is done with it: before it is done.
    void onWindow(std::function<void(const std::string&)> listener);

    // A window may be about to appear, although none was announced. Costs a look at the screen every few milliseconds from now
    // on.
    void watch();

private:
    struct Step {
        std::string caption;
        // What is done, in words.
        std::string deed;
        std::function<void(HWND)> action;
    };
    void expectWindow(Step step);
    void run(const std::stop_token& stop);
    void meet(HWND window);
    void waitUntilLeft(HWND window);
    void note(std::string failure);

    struct CloseEvent {
        void operator()(HANDLE event) const { CloseHandle(event); }
    };

    std::mutex mutex_;
    // Windows' own, since a condition variable of this runtime was seen to miss its wake-up under Wine.
    std::unique_ptr<void, CloseEvent> awake_{CreateEventA(nullptr, TRUE, FALSE, nullptr)};
    std::deque<Step> steps_;
    std::function<void(const std::string&)> listener_;
    std::vector<std::string> failures_;
    std::jthread thread_;
};

} // namespace quelta::test
