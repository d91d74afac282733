#include "token/pin_field.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quelta {

namespace {

using namespace std::string_view_literals;

// One byte in every code page, so that a control counts alike whether it keeps bytes or UTF-16.
constexpr wchar_t filler = L'*';

constexpr auto fillers = [] {
    std::array<wchar_t, PinField::longestText + 1> all{};
    std::fill_n(all.begin(), PinField::longestText, filler);
    return all;
}();

bool isTyped(wchar_t character)
{
    constexpr wchar_t rubout = 127;
    return character >= L' ' && character != rubout;
}

std::wstring_view textAt(LPARAM address)
{
    const auto* const text = reinterpret_cast<const wchar_t*>(address);
    return text ? text : L""sv;
}

} // namespace

void PinField::takeOver(HWND edit)
{
    edit_ = edit;
    SetWindowLongPtrW(edit, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    original_ = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(edit, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&onMessage)));
    ask(EM_LIMITTEXT, longestText);
}

void PinField::read(std::string& text) const
{
    text.resize(longestText);
    int count = static_cast<int>(text_->size());
    int bytes = 0;
    // Where characters take several bytes, the last ones may have no room.
    do {
        bytes = WideCharToMultiByte(CP_ACP, 0, text_->data(), count, text.data(), longestText, nullptr, nullptr);
    } while (bytes == 0 && --count > 0);
    text.resize(static_cast<std::size_t>(bytes));
}

LRESULT CALLBACK PinField::onMessage(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    return reinterpret_cast<PinField*>(GetWindowLongPtrW(edit, GWLP_USERDATA))->answer(message, wParam, lParam);
}

LRESULT PinField::answer(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_GETTEXT: return handOut(reinterpret_cast<wchar_t*>(lParam), wParam);
    case WM_SETTEXT: return put(message, wParam, textAt(lParam), {0, text_->size()});
    case EM_REPLACESEL: return put(message, wParam, textAt(lParam), selection());
    case WM_PASTE: return paste();
    case WM_CHAR:
        if (const auto character = static_cast<wchar_t>(wParam); isTyped(character))
            return change(message, filler, lParam, selection(), {&character, 1});
        break;
    default: break;
    }
    // What the control sends itself meanwhile belongs to what it is at.
    return changing_ ? ask(message, wParam, lParam) : change(message, wParam, lParam, selection(), {});
}

LRESULT PinField::ask(UINT message, WPARAM wParam, LPARAM lParam) const
{
    return CallWindowProcW(original_, edit_, message, wParam, lParam);
}

PinField::Selection PinField::selection() const
{
    DWORD first = 0, last = 0;
    ask(EM_GETSEL, reinterpret_cast<WPARAM>(&first), reinterpret_cast<LPARAM>(&last));
    const std::size_t begin = std::min<std::size_t>(first, text_->size());
    return {begin, std::clamp<std::size_t>(last, begin, text_->size()) - begin};
}

LRESULT PinField::change(UINT message, WPARAM wParam, LPARAM lParam, Selection replaced, std::wstring_view typed)
{
    const bool within = std::exchange(changing_, true);
    const LRESULT result = ask(message, wParam, lParam);
    follow(replaced, typed);
    changing_ = within;
    return result;
}

LRESULT PinField::put(UINT message, WPARAM wParam, std::wstring_view text, Selection replaced)
{
    const std::wstring_view fitting = text.substr(0, longestText - text_->size() + replaced.length);
    return change(message, wParam, reinterpret_cast<LPARAM>(fillers.data() + longestText - fitting.size()), replaced, fitting);
}

// The first line of what was copied.
LRESULT PinField::paste()
{
    if (!OpenClipboard(edit_)) return 0;
    const HANDLE copied = GetClipboardData(CF_UNICODETEXT);
    if (const auto* const text = copied ? static_cast<const wchar_t*>(GlobalLock(copied)) : nullptr) {
        const std::wstring_view all(text, GlobalSize(copied) / sizeof *text);
        put(EM_REPLACESEL, TRUE, all.substr(0, all.find_first_of(L"\r\n\0"sv)), selection());
        GlobalUnlock(copied);
    }
    CloseClipboard();
    return 0;
}

LRESULT PinField::handOut(wchar_t* room, std::size_t size) const
{
    if (!room || size == 0) return 0;
    const std::size_t count = text_->copy(room, size - 1);
    room[count] = L'\0';
    return static_cast<LRESULT>(count);
}

// The control alone knows what keys do. Its length and its caret tell what it did.
void PinField::follow(Selection replaced, std::wstring_view typed)
{
    const std::size_t before = text_->size();
    const std::size_t after = std::min(static_cast<std::size_t>(ask(WM_GETTEXTLENGTH)), longestText);
    if (typed.empty() && after == before) return;
    const std::size_t added = after - std::min(after, before - replaced.length);
    Wiped<std::array<wchar_t, longestText + 1>> unknown;
    if (typed.empty() && after > before) {
        // In a way that is not known here, so that the control has the characters themselves.
        ask(WM_GETTEXT, unknown->size(), reinterpret_cast<LPARAM>(unknown->data()));
        typed = std::wstring_view(unknown->data(), after).substr(replaced.first, added);
    }
    if (typed.empty())
        text_->erase(std::min(selection().first, before), before - after);
    else
        text_->replace(replaced.first, replaced.length, typed.substr(0, added));
    // It would give fillers back.
    ask(EM_EMPTYUNDOBUFFER);
}

} // namespace quelta
