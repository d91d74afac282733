#include "token/pin_field.h"

#include "base/windows_objects.h"

#include <gmock/gmock.h>

#include <array>
#include <random>

namespace quelta::test {

namespace {

using Window = WindowsObject<HWND, DestroyWindow>;

constexpr UINT typeBeneath = WM_APP;
WNDPROC systemProcedure = nullptr;

// As an input method might, past everybody who listens to the control.
LRESULT CALLBACK onBeneath(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    return CallWindowProcW(systemProcedure, window, message == typeBeneath ? WM_CHAR : message, wParam, lParam);
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
    systemProcedure = reinterpret_cast<WNDPROC>(SetWindowLongPtrW(edit.get(), GWLP_WNDPROC, beneath));
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

bool copyToClipboard(const Window& owner, std::wstring_view text)
{
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
    *std::ranges::copy(text, static_cast<wchar_t*>(GlobalLock(memory))).out = L'\0';
    GlobalUnlock(memory);
    if (!OpenClipboard(owner.get())) return false;
    EmptyClipboard();
    const bool copied = SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
    CloseClipboard();
    return copied;
}

void hold(int key, bool held = true)
{
    std::array<BYTE, 256> keys{};
    keys.at(static_cast<std::size_t>(key)) = held ? 0x80 : 0;
    SetKeyboardState(keys.data());
}

} // namespace

// Beside a plain one that gets the same messages. What it has of its own meanwhile is nobody's text.
TEST(PinField, IsToItsUserWhatThePlainControlIs)
{
    constexpr WPARAM keys[] = {VK_LEFT, VK_RIGHT, VK_HOME, VK_END, VK_DELETE, VK_INSERT};
    constexpr WPARAM undo = 26, paste = 22, commands[] = {undo, paste, L'\b'};
    constexpr std::size_t most = 250;
    const Window plain = makeEdit();
    PinField field;
    const Window edit = makeEditWith(field);
    for (const Window* window : {&plain, &edit}) SendMessageW(window->get(), EM_LIMITTEXT, most, 0);
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
    // Each typed character uses up something, and a dialog is not for ever.
    for (int step = 0; step <= 600; ++step) {
        const bool isLast = step == 600;
        const std::wstring text = isLast ? std::wstring(2 * most, L'a') : randomText();
        const std::tuple<UINT, WPARAM, LPARAM> messages[] = {
            {WM_CHAR, text.empty() ? L'\b' : text.front(), 1},
            {WM_CHAR, commands[below(3)], 1},
            {WM_KEYDOWN, keys[below(6)], 1},
            {EM_SETSEL, below(60), static_cast<LPARAM>(below(60))},
            {EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(text.c_str())},
            {below(40) == 0 ? WM_SETTEXT : WM_CLEAR, 0, reinterpret_cast<LPARAM>(text.c_str())}};
        const auto& [message, wParam, lParam] = messages[isLast ? 4 : below(6)];
        ASSERT_TRUE(step % 50 != 0 || copyToClipboard(plain, step == 100 ? L"" : L"two\r\nlines")) << GetLastError();
        // Not with the others, which would copy from one to the other.
        hold(VK_SHIFT, message == WM_KEYDOWN && wParam == VK_INSERT && below(3) != 0);
        for (const Window* window : {&plain, &edit}) SendMessageW(window->get(), message, wParam, lParam);
        ASSERT_EQ(stateOf(edit), stateOf(plain)) << "message " << message << ", " << wParam << " at step " << step;
        std::array<char, PinField::longestText + 1> expected{};
        const int length = GetWindowTextA(plain.get(), expected.data(), static_cast<int>(expected.size()));
        std::string read;
        field.read(read);
        ASSERT_EQ(read, expected.data());
        ASSERT_EQ(field.length(), length);
        std::array<wchar_t, most + 1> within{};
        CallWindowProcW(systemProcedure, edit.get(), WM_GETTEXT, within.size(), reinterpret_cast<LPARAM>(within.data()));
        ASSERT_TRUE(std::ranges::none_of(std::wstring_view(within.data()), [](wchar_t unit) { return unit < 0xE000; }));
        longest = std::max(longest, std::wstring_view(within.data()).size());
    }
    EXPECT_EQ(longest, most) << "the limit was not tried";
}

TEST(PinField, HasWhatTheControlWasGivenBeneathItToo)
{
    PinField field;
    const Window edit = makeEditWith(field);
    for (const std::wstring selected : {L"", L"4", L"456"}) {
        SendMessageW(edit.get(), WM_SETTEXT, 0, reinterpret_cast<LPARAM>((L"1" + selected + L"3").c_str()));
        SendMessageW(edit.get(), EM_SETSEL, 1, static_cast<LPARAM>(1 + selected.size()));
        SendMessageW(edit.get(), typeBeneath, L'2', 1);
        EXPECT_EQ(stateOf(edit), L"123 2-2 of 3") << selected;
    }
}

TEST(PinField, TakesAllOfATextOrNothingAndCopiesNone)
{
    PinField field;
    const Window edit = makeEditWith(field);
    // More than there are stand-ins.
    for (wchar_t letter = L'a'; letter <= L'z'; ++letter) {
        SendMessageW(edit.get(), EM_SETSEL, 0, -1);
        SendMessageW(edit.get(), EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(std::wstring(250, letter).c_str()));
    }
    std::wstring line(300, L'\0');
    line[0] = 300;
    EXPECT_EQ(SendMessageW(edit.get(), EM_GETLINE, 0, reinterpret_cast<LPARAM>(line.data())), 250);
    EXPECT_EQ(line.substr(0, 250), std::wstring(250, L'y'));
    ASSERT_TRUE(copyToClipboard(edit, L"5678"));
    SendMessageW(edit.get(), EM_SETSEL, 0, -1);
    for (const UINT message : {WM_COPY, WM_CUT}) SendMessageW(edit.get(), message, 0, 0);
    for (const auto& [held, pressed] : {std::pair(VK_SHIFT, VK_DELETE), {VK_CONTROL, VK_INSERT}}) {
        hold(held);
        SendMessageW(edit.get(), WM_KEYDOWN, static_cast<WPARAM>(pressed), 1);
        hold(held, false);
    }
    // The last ones, up to two; then what is empty begins anew.
    for (const std::size_t pasted : {148, 4}) {
        SendMessageW(edit.get(), WM_SETTEXT, 0, 0);
        for (int times = 0; times < (pasted == 4 ? 1 : 40); ++times) SendMessageW(edit.get(), WM_PASTE, 0, 0);
        std::string read;
        field.read(read);
        EXPECT_EQ(read.substr(0, 4) + std::to_string(read.size()), "5678" + std::to_string(pasted));
    }
}

} // namespace quelta::test
