#pragma once

#include "base/wipe.h"

#include <windows.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace quelta {

// Keeps what is typed into an edit control out of the control, which leaves its text in freed memory: in each block that it has
// outgrown, and in the last one. The control gets a private-use unit in place of each character, and does with these all that a
// user wants of it. Which stands for which is kept here, and wiped. Whoever reads or sets the text by message has the characters,
// as ever; only what is undone after the control was emptied may be lost, and nothing is copied.
class PinField {
public:
    // In bytes; what is longer is cut.
    static constexpr std::size_t longestText = 255;

    PinField() { typed_->reserve(standIns); }
    PinField(const PinField&) = delete;
    PinField& operator=(const PinField&) = delete;

    // Once, in the control's thread. Its user data is taken; the field outlives the control. An ANSI control, which has no place
    // for stand-ins, is left as it is.
    void takeOver(HWND edit);
    // The text in the system's code page. Allocates nothing where `text` has room for `longestText`.
    void read(std::string& text) const;
    // What read() would give, in bytes.
    int length() const;

private:
    // Each is used once, so that undoing finds what it was.
    static constexpr wchar_t firstStandIn = 0xE000;
    static constexpr std::size_t standIns = 6400;

    static LRESULT CALLBACK onMessage(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    LRESULT answer(UINT message, WPARAM wParam, LPARAM lParam);
    LRESULT ask(UINT message, WPARAM wParam, LPARAM lParam) const;
    LRESULT type(wchar_t unit, LPARAM lParam);
    LRESULT put(UINT message, WPARAM wParam, std::wstring_view text);
    LRESULT paste();
    bool hasStandIns(std::size_t count);
    wchar_t standInFor(wchar_t unit);
    void reveal(std::span<wchar_t> units) const;
    int convert(std::span<char> room) const;

    HWND edit_ = nullptr;
    WNDPROC original_ = nullptr;
    Wiped<std::wstring> typed_;
};

} // namespace quelta
