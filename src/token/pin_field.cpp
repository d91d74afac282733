#include "token/pin_field.h"

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

// Open while it lives.
class Clipboard {
public:
    explicit Clipboard(HWND owner) : open_(OpenClipboard(owner) != FALSE) {}
    Clipboard(const Clipboard&) = delete;
    Clipboard& operator=(const Clipboard&) = delete;
    ~Clipboard()
    {
        if (memory_) GlobalUnlock(memory_);
        if (open_) CloseClipboard();
    }

    // Empty where there is no text.
    std::wstring_view firstLine()
    {
        memory_ = open_ ? GetClipboardData(CF_UNICODETEXT) : nullptr;
        const auto* const text = memory_ ? static_cast<const wchar_t*>(GlobalLock(memory_)) : nullptr;
        if (!text) return {};
        const std::wstring_view all(text, GlobalSize(memory_) / sizeof *text);
        return all.substr(0, all.find_first_of(L"\r\n\0"sv));
    }

private:
    bool open_;
    HANDLE memory_ = nullptr;
};

} // namespace

void PinField::takeOver(HWND edit)
{
    edit_ = edit;
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
    case WM_PASTE: return put(EM_REPLACESEL, TRUE, Clipboard(edit_).firstLine());
    case WM_KEYDOWN:
        // Not every system makes the message of it.
        if (wParam == VK_INSERT && GetKeyState(VK_SHIFT) < 0) return answer(WM_PASTE, 0, 0);
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
    if (const auto standIn = standInFor(unit)) return ask(WM_CHAR, *standIn, lParam);
    MessageBeep(MB_OK);
    return 0;
}

LRESULT PinField::put(UINT message, WPARAM wParam, std::wstring_view text)
{
    std::array<wchar_t, standIns + 1> given{};
    std::size_t count = 0;
    for (const wchar_t unit : text.substr(0, standIns)) {
        // The control's own, copied.
        const std::optional standIn = isStandIn(unit) ? unit : standInFor(unit);
        if (!standIn) break;
        given[count++] = *standIn;
    }
    return ask(message, wParam, reinterpret_cast<LPARAM>(given.data()));
}

bool PinField::isStandIn(wchar_t unit) const
{
    return unit >= firstStandIn && unit - std::size_t{firstStandIn} < typed_->size();
}

std::optional<wchar_t> PinField::standInFor(wchar_t unit)
{
    if (typed_->size() == standIns) return std::nullopt;
    typed_->push_back(unit);
    return static_cast<wchar_t>(firstStandIn + typed_->size() - 1);
}

void PinField::reveal(std::span<wchar_t> units) const
{
    for (wchar_t& unit : units) {
        // What the control was given in a way that is not known here stands for itself.
        if (isStandIn(unit)) unit = (*typed_)[unit - std::size_t{firstStandIn}];
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
