#pragma once

#include "base/wipe.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace quelta {

// What is typed into an edit control, kept here and wiped: the system's control lets go of its text as it stands, and of each
// block that the text has outgrown. So it gets a filler for each character, and goes on to do all that a user sees of it: caret,
// selection, sound. The text is read and set through the control as ever; only what was undone does not come back.
class PinField {
public:
    static constexpr std::size_t longestText = 255;

    PinField() { text_->reserve(longestText); }
    PinField(const PinField&) = delete;
    PinField& operator=(const PinField&) = delete;

    // Once, in the control's thread and while it is empty. Its user data is taken; the field outlives the control.
    void takeOver(HWND edit);
    // The text as GetWindowTextA has it. Allocates nothing where `text` has room for `longestText`.
    void read(std::string& text) const;

private:
    struct Selection {
        std::size_t first, length;
    };

    static LRESULT CALLBACK onMessage(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    LRESULT answer(UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT ask(UINT message, WPARAM wParam = 0, LPARAM lParam = 0) const;
    Selection selection() const;
    LRESULT change(UINT message, WPARAM wParam, LPARAM lParam, Selection replaced, std::wstring_view typed);
    LRESULT put(UINT message, WPARAM wParam, std::wstring_view text, Selection replaced);
    LRESULT paste();
    LRESULT handOut(wchar_t* room, std::size_t size) const;
    void follow(Selection replaced, std::wstring_view typed);

    HWND edit_ = nullptr;
    WNDPROC original_ = nullptr;
    bool changing_ = false;
    Wiped<std::wstring> text_;
};

} // namespace quelta
