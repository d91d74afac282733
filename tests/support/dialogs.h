// Finds the dialogs of this process and works them as a user would. Tests and the soak use this.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace quelta::test {

inline constexpr const char pinCaption[] = "Verify User Pin";
inline constexpr const char messageCaption[] = "Quelta";

// Returns the visible dialogs and message boxes of this process.
std::vector<HWND> visibleDialogs();
std::string textOf(HWND window);
// Returns the text of a message box.
std::string messageOf(HWND window);
// Waits some seconds until the window has gone. Returns false if it stays.
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

    // Types the text at the end, character by character.
    void type(const std::string& text) const;
    void erase(std::size_t characters) const { type(std::string(characters, '\b')); }
    void pressLogin() const { press(loginButton()); }
    void pressCancel() const { press(cancelButton()); }
    void close() const;
    void pressEnter() const;

private:
    // Does nothing if the button is disabled.
    static void press(HWND button);

    HWND window_;
};

} // namespace quelta::test
