#include "token/pin_dialog.h"

#include "base/wipe.h"
#include "log/log_writer.h"
#include "resources/resource_ids.h"
#include "token/token_state.h"

#include <windows.h>

#include <array>

namespace quelta {

namespace {

constexpr int loginButton = IDOK;
constexpr int cancelButton = IDCANCEL;

using TextBuffer = std::array<char, 256>;

// Returns the PIN of this dialog; null before WM_INITDIALOG. Two threads that ask at once have two dialogs and two PINs.
std::string* pinOf(HWND dialog)
{
    return reinterpret_cast<std::string*>(GetWindowLongPtrA(dialog, DWLP_USER));
}

void allowLogin(HWND dialog, bool allowed)
{
    EnableWindow(GetDlgItem(dialog, loginButton), allowed);
}

bool isPinLength(int length)
{
    return static_cast<unsigned>(length) - 4U < 60U;
}

// `pin` has the capacity for the text, so the dialog procedure allocates nothing.
void readText(HWND dialog, std::string& pin)
{
    Wiped<TextBuffer> text;
    GetDlgItemTextA(dialog, IDC_USER_PIN, text->data(), static_cast<int>(text->size()));
    pin = text->data();
}

void onCommand(HWND dialog, int id, int notification)
{
    std::string* const pin = pinOf(dialog);
    if (!pin) return;
    switch (id) {
    case IDC_USER_PIN:
        if (notification == EN_CHANGE) allowLogin(dialog, isPinLength(GetWindowTextLengthA(GetDlgItem(dialog, IDC_USER_PIN))));
        return;
    case loginButton: readText(dialog, *pin); break;
    case cancelButton: pin->clear(); break;
    default: break;
    }
    EndDialog(dialog, 0);
}

INT_PTR CALLBACK onDialogMessage(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    switch (message) {
    case WM_INITDIALOG:
        SetWindowLongPtrA(dialog, DWLP_USER, lParam);
        allowLogin(dialog, false);
        return TRUE;
    case WM_COMMAND: onCommand(dialog, LOWORD(wParam), HIWORD(wParam)); return TRUE;
    case WM_CLOSE: EndDialog(dialog, 0); return TRUE;
    default: return FALSE;
    }
}

} // namespace

int showPasswordDialog(std::string& dialogPin)
{
    logDebug("Password dialog show window");
    dialogPin.clear();
    dialogPin.reserve(std::tuple_size_v<TextBuffer>);
    logDebug("Password dialog show window before");
    const auto module = static_cast<HINSTANCE>(tokenState().moduleHandle.load());
    const INT_PTR result =
        DialogBoxParamA(module, MAKEINTRESOURCEA(IDD_PASSWORD), nullptr, onDialogMessage, reinterpret_cast<LPARAM>(&dialogPin));
    logDebug("Password dialog show window after");
    if (result != 0) logError("Password dialog creation failed : ", result);
    return 0;
}

} // namespace quelta
