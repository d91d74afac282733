// The dialogs of this process as a user sees and works them, from within the process: for tests and for the soak.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace quelta::test {

inline constexpr const char pinCaption[] = "Verify User Pin";
inline constexpr const char messageCaption[] = "Quelta";

// Message boxes too.
std::vector<HWND> visibleDialogs();
std::string textOf(HWND window);
// The text of a message box.
std::string messageOf(HWND window);
// False for one that stays although it was left: some seconds are waited for it.
bool goesAway(HWND window);

// The PIN dialog.
class PinDialog {
public:
    explicit PinDialog(HWND window) : window_(window) {}

    HWND window() const { return window_; }
    HWND edit() const;
    HWND loginButton() const { return GetDlgItem(window_, IDOK); }
    HWND cancelButton() const { return GetDlgItem(window_, IDCANCEL); }
    bool loginAllowed() const { return IsWindowEnabled(loginButton()) != FALSE; }

    // Character by character, at the end of what is there.
    void type(const std::string& text) const;
    void erase(std::size_t characters) const { type(std::string(characters, '\b')); }
    void pressLogin() const { press(loginButton()); }
    void pressCancel() const { press(cancelButton()); }
    void close() const;
    void pressEnter() const;

private:
    // A disabled button is left alone.
    static void press(HWND button);

    HWND window_;
};

} // namespace quelta::test
