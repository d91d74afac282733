#include "token/pin_field.h"

#include "base/windows_objects.h"

#include <algorithm>
#include <array>

namespace quelta {

namespace {

using namespace std::string_view_literals;

// The others are the control's keys.
bool isTyped(wchar_t unit)
{
    constexpr wchar_t rubout = 127;
    return unit >= L' ' && unit != rubout;
}

std::wstring_view textAt(LPARAM address)
{
    const auto* const text = reinterpret_cast<const wchar_t*>(address);
    return text ? text : L""sv;
}

bool isPressed(int key)
{
    return GetKeyState(key) < 0;
}

void closeClipboard(HWND)
{
    CloseClipboard();
}

void unlock(HANDLE memory)
{
    GlobalUnlock(memory);
}

using OpenedClipboard = WindowsObject<HWND, closeClipboard>;
using LockedMemory = WindowsObject<HANDLE, unlock>;

} // namespace

void PinField::takeOver(HWND edit)
{
    edit_ = edit;
    if (!IsWindowUnicode(edit)) return;
    SetWindowLongPtrW(edit, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    original_ = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(edit, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&onMessage)));
}

void PinField::read(std::string& text) const
{
    text.resize(longestText);
    text.resize(static_cast<std::size_t>(convert(text)));
}

int PinField::length() const
{
    Wiped<std::array<char, longestText>> text;
    return convert(*text);
}

LRESULT CALLBACK PinField::onMessage(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    return reinterpret_cast<PinField*>(GetWindowLongPtrW(edit, GWLP_USERDATA))->answer(message, wParam, lParam);
}

LRESULT PinField::answer(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_GETTEXT:
    case EM_GETLINE: {
        const LRESULT count = ask(message, wParam, lParam);
        if (count > 0) reveal({reinterpret_cast<wchar_t*>(lParam), static_cast<std::size_t>(count)});
        return count;
    }
    case WM_SETTEXT:
    case EM_REPLACESEL: return put(message, wParam, textAt(lParam));
    case WM_PASTE: return paste();
    // No password field gives its text to the clipboard.
    case WM_COPY:
    case WM_CUT: return 0;
    case WM_KEYDOWN:
        // Some controls do here what they do for a message, without the message.
        if (wParam == VK_INSERT && isPressed(VK_SHIFT)) return paste();
        if ((wParam == VK_INSERT && isPressed(VK_CONTROL)) || (wParam == VK_DELETE && isPressed(VK_SHIFT))) return 0;
        break;
    case WM_CHAR:
        if (const auto unit = static_cast<wchar_t>(wParam); isTyped(unit)) return type(unit, lParam);
        break;
    default: break;
    }
    return ask(message, wParam, lParam);
}

LRESULT PinField::ask(UINT message, WPARAM wParam, LPARAM lParam) const
{
    return CallWindowProcW(original_, edit_, message, wParam, lParam);
}

LRESULT PinField::type(wchar_t unit, LPARAM lParam)
{
    return hasStandIns(1) ? ask(WM_CHAR, standInFor(unit), lParam) : 0;
}

// All of the text or nothing: a part could be taken for a PIN. Nobody reads what is beyond the longest.
LRESULT PinField::put(UINT message, WPARAM wParam, std::wstring_view text)
{
    std::array<wchar_t, longestText + 2> given{};
    text = text.substr(0, longestText + 1);
    if (!hasStandIns(text.size())) return 0;
    std::ranges::transform(text, given.begin(), [this](wchar_t unit) { return standInFor(unit); });
    return ask(message, wParam, reinterpret_cast<LPARAM>(given.data()));
}

// The first line of what was copied. Where that is no text, what is selected goes all the same, as with other password fields.
LRESULT PinField::paste()
{
    if (!OpenClipboard(edit_)) return 0;
    const OpenedClipboard opened(edit_);
    const HANDLE memory = GetClipboardData(CF_UNICODETEXT);
    const auto* const text = memory ? static_cast<const wchar_t*>(GlobalLock(memory)) : nullptr;
    if (!text) return put(EM_REPLACESEL, TRUE, {});
    const LockedMemory locked(memory);
    const std::wstring_view all(text, GlobalSize(memory) / sizeof *text);
    return put(EM_REPLACESEL, TRUE, all.substr(0, all.find_first_of(L"\r\n\0"sv)));
}

bool PinField::hasStandIns(std::size_t count)
{
    if (typed_->size() + count > standIns && ask(WM_GETTEXTLENGTH, 0, 0) == 0) {
        ask(EM_EMPTYUNDOBUFFER, 0, 0);
        typed_.clear();
    }
    const bool has = typed_->size() + count <= standIns;
    if (!has) MessageBeep(MB_OK);
    return has;
}

wchar_t PinField::standInFor(wchar_t unit)
{
    typed_->push_back(unit);
    return static_cast<wchar_t>(firstStandIn + typed_->size() - 1);
}

void PinField::reveal(std::span<wchar_t> units) const
{
    for (wchar_t& unit : units) {
        const std::size_t at = std::size_t{unit} - firstStandIn;
        // What the control was given in a way that is not known here stands for itself.
        if (at < typed_->size()) unit = (*typed_)[at];
    }
}

// A character may take several bytes: the last ones go where all have no room.
int PinField::convert(std::span<char> room) const
{
    Wiped<std::array<wchar_t, longestText + 1>> text;
    int count = GetWindowTextW(edit_, text->data(), static_cast<int>(text->size()));
    int bytes = 0;
    for (; count > 0 && bytes == 0; --count)
        bytes = WideCharToMultiByte(CP_ACP, 0, text->data(), count, room.data(), static_cast<int>(room.size()), nullptr, nullptr);
    return bytes;
}

} // namespace quelta
