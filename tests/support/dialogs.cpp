#include "support/dialogs.h"

#include "resources/resource_ids.h"

#include <array>
#include <string_view>

namespace quelta::test {

namespace {

constexpr int messageTextId = 0xFFFF;
constexpr UINT patience = 5000;

void send(HWND window, UINT message, WPARAM wParam = 0, LPARAM lParam = 0)
{
    DWORD_PTR result = 0;
    SendMessageTimeoutA(window, message, wParam, lParam, SMTO_NORMAL, patience, &result);
}

BOOL CALLBACK addOwnDialog(HWND window, LPARAM found)
{
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    std::array<char, 16> name{};
    GetClassNameA(window, name.data(), static_cast<int>(name.size()));
    if (process == GetCurrentProcessId() && name.data() == std::string_view("#32770") && IsWindowVisible(window))
        reinterpret_cast<std::vector<HWND>*>(found)->push_back(window);
    return TRUE;
}

bool comesTrue(auto condition)
{
    for (int tries = 0; tries < 1000; ++tries, Sleep(5)) {
        if (condition()) return true;
    }
    return false;
}

} // namespace

std::vector<HWND> visibleDialogs()
{
    std::vector<HWND> found;
    EnumWindows(addOwnDialog, reinterpret_cast<LPARAM>(&found));
    return found;
}

std::string textOf(HWND window)
{
    std::array<char, 512> text{};
    send(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    return text.data();
}

std::string messageOf(HWND window)
{
    return textOf(GetDlgItem(window, messageTextId));
}

bool goesAway(HWND window)
{
    return comesTrue([window] { return !IsWindow(window) || !IsWindowVisible(window); });
}

HWND PinDialog::edit() const
{
    return GetDlgItem(window_, IDC_USER_PIN);
}

void PinDialog::type(const std::string& text) const
{
    for (const char character : text) send(edit(), WM_CHAR, static_cast<unsigned char>(character));
}

void PinDialog::press(HWND button)
{
    if (IsWindowEnabled(button)) send(button, BM_CLICK);
}

void PinDialog::close() const
{
    send(window_, WM_SYSCOMMAND, SC_CLOSE);
}

// Posts the key, so that the dialog's own message loop handles it.
void PinDialog::pressEnter() const
{
    PostMessageA(edit(), WM_KEYDOWN, VK_RETURN, 1);
    PostMessageA(edit(), WM_KEYUP, VK_RETURN, 1);
}

} // namespace quelta::test
