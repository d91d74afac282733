#include "token/pin_field.h"

#include "base/windows_objects.h"

#include <gmock/gmock.h>

#include <array>
#include <random>

namespace quelta::test {

namespace {

using Window = WindowsObject<HWND, DestroyWindow>;

constexpr UINT typeBeneath = WM_APP;
WNDPROC system = nullptr;

// As an input method might, past everybody who listens to the control.
LRESULT CALLBACK onBeneath(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return CallWindowProcW(system, window, message == typeBeneath ? WM_CHAR : message, wParam, lParam);
}

Window makeEdit()
{
    return Window(CreateWindowW(L"Edit", L"", WS_POPUP | ES_PASSWORD | ES_AUTOHSCROLL, 0, 0, 200, 20, nullptr, nullptr,
                                GetModuleHandleW(nullptr), nullptr));
}

Window makeEditWith(PinField& field)
{
    Window edit = makeEdit();
    const auto beneath = reinterpret_cast<LONG_PTR>(&onBeneath);
    system = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(edit.get(), GWLP_WNDPROC, beneath));
    field.takeOver(edit.get());
    return edit;
}

// The text, and what is selected in it.
std::wstring stateOf(const Window& edit)
{
    std::array<wchar_t, PinField::longestText + 1> text{};
    GetWindowTextW(edit.get(), text.data(), static_cast<int>(text.size()));
    const auto selected = static_cast<DWORD>(SendMessageW(edit.get(), EM_GETSEL, 0, 0));
    return text.data() + (L" " + std::to_wstring(LOWORD(selected))) + L"-" + std::to_wstring(HIWORD(selected)) + L" of " +
           std::to_wstring(GetWindowTextLengthW(edit.get()));
}

void copyToClipboard(std::wstring_view text)
{
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
    *std::ranges::copy(text, static_cast<wchar_t*>(GlobalLock(memory))).out = L'\0';
    GlobalUnlock(memory);
    ASSERT_TRUE(OpenClipboard(nullptr));
    EmptyClipboard();
    SetClipboardData(CF_UNICODETEXT, memory);
    CloseClipboard();
}

} // namespace

// Beside a plain one that gets the same messages. What it has of its own meanwhile is fillers.
TEST(PinField, IsToItsUserWhatThePlainControlIs)
{
    constexpr WPARAM undo = 26, paste = 22;
    const Window plain = makeEdit();
    SendMessageW(plain.get(), EM_LIMITTEXT, PinField::longestText, 0);
    PinField field;
    const Window edit = makeEditWith(field);
    copyToClipboard(L"two\r\nlines");
    const auto seed = static_cast<unsigned>(GetTickCount64());
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random); };
    const auto randomText = [&] {
        std::wstring text(below(60), L' ');
        for (wchar_t& character : text) character = L"*aZ 9\u00E9\u20AC"[below(7)];
        return text;
    };
    std::size_t longest = 0;
    for (int step = 0; step < 3000; ++step) {
        const std::wstring text = randomText();
        const WPARAM keys[] = {VK_LEFT, VK_RIGHT, VK_HOME, VK_END, VK_DELETE};
        const std::tuple<UINT, WPARAM, LPARAM> messages[] = {
            {WM_CHAR, text.empty() ? L'\b' : text.front(), 1},
            {WM_CHAR, below(5) == 0 ? paste : L'\b', 1},
            {WM_KEYDOWN, keys[below(5)], 1},
            {EM_SETSEL, below(60), static_cast<LPARAM>(below(60))},
            {EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(text.c_str())},
            {below(30) == 0 ? WM_SETTEXT : WM_CLEAR, 0, reinterpret_cast<LPARAM>(text.c_str())}};
        const auto& [message, wParam, lParam] = messages[below(6)];
        for (const Window* window : {&plain, &edit}) SendMessageW(window->get(), message, wParam, lParam);
        ASSERT_EQ(stateOf(edit), stateOf(plain)) << "message " << message << " at step " << step;
        std::array<char, PinField::longestText + 1> expected{};
        GetWindowTextA(plain.get(), expected.data(), static_cast<int>(expected.size()));
        std::string read;
        field.read(read);
        ASSERT_EQ(read, expected.data());
        std::array<wchar_t, PinField::longestText + 1> within{};
        CallWindowProcW(system, edit.get(), WM_GETTEXT, within.size(), reinterpret_cast<LPARAM>(within.data()));
        ASSERT_EQ(within.data(), std::wstring(read.size(), L'*'));
        longest = std::max(longest, read.size());
    }
    EXPECT_EQ(longest, PinField::longestText) << "the limit was not tried";
    SendMessageW(edit.get(), WM_CHAR, undo, 1);
    EXPECT_EQ(stateOf(edit).find(L'*'), stateOf(plain).find(L'*')) << "fillers came back";
}

TEST(PinField, ReadsWhatTheControlWasGivenBeneathIt)
{
    PinField field;
    const Window edit = makeEditWith(field);
    for (const wchar_t character : {L'1', L'3'}) SendMessageW(edit.get(), WM_CHAR, character, 1);
    SendMessageW(edit.get(), EM_SETSEL, 1, 1);
    SendMessageW(edit.get(), typeBeneath, L'2', 1);
    EXPECT_EQ(stateOf(edit), L"123 2-2 of 3");
}

} // namespace quelta::test
