#pragma once

#include "support/dialogs.h"

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quelta::test {

// A simulated user, who answers the windows of this process in the order in which the test announced them. The test fails if a
// window was not announced, or never came.
class DialogUser {
public:
    DialogUser();
    ~DialogUser();
    DialogUser(const DialogUser&) = delete;
    DialogUser& operator=(const DialogUser&) = delete;

    void entersPin(const std::string& pin);
    void cancels() { meetsPinDialog(&PinDialog::pressCancel, "Cancel"); }
    void closes() { meetsPinDialog(&PinDialog::close, "closed"); }
    // `action` must close the dialog. It runs on another thread than the test.
    void meetsPinDialog(std::function<void(PinDialog)> action, std::string deed = "");
    // Presses OK in the next message box.
    void acknowledges();

    // The listener is told of each window and of the user's answer, before the user gives it. It runs on another thread than the
    // test.
    void onWindow(std::function<void(const std::string&)> listener);

private:
    struct Step {
        std::string caption;
        std::string deed; // in words
        std::function<void(HWND)> action;
    };
    void expect(Step step);
    void meet(HWND window);
    Step stepFor(const std::string& caption);
    void note(const std::string& failure);

    std::mutex mutex_;
    std::deque<Step> steps_;
    std::function<void(const std::string&)> listener_;
    std::vector<std::string> failures_;
    std::jthread thread_;
};

} // namespace quelta::test
