#include "token/pin_dialog.h"

#include "log/log_writer.h"
#include "resources/resource_ids.h"
#include "token/pin_field.h"
#include "token/token_state.h"

#include <windows.h>

namespace quelta {

namespace {

constexpr int loginButton = IDOK;
constexpr int cancelButton = IDCANCEL;

// Of one run of the dialog, so that two threads that ask at once do not read each other's.
struct Run {
    std::string& pin;
    PinField field;
};

void allowLogin(HWND dialog, bool allowed)
{
    EnableWindow(GetDlgItem(dialog, loginButton), allowed);
}

bool isPinLength(int length)
{
    return static_cast<unsigned>(length) - 4U < 60U;
}

// Null before the dialog is initialised, when others may have sent it something already.
Run* runOf(HWND dialog)
{
    return reinterpret_cast<Run*>(GetWindowLongPtrW(dialog, GWLP_USERDATA));
}

void onCommand(HWND dialog, int id, int notification)
{
    Run* const run = runOf(dialog);
    if (!run) return;
    switch (id) {
    case IDC_USER_PIN:
        if (notification == EN_CHANGE) allowLogin(dialog, isPinLength(run->field.length()));
        return;
    case loginButton: run->field.read(run->pin); break;
    case cancelButton: run->pin.clear(); break;
    default: break;
    }
    EndDialog(dialog, 0);
}

INT_PTR CALLBACK onDialogMessage(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    switch (message) {
    case WM_INITDIALOG:
        SetWindowLongPtrW(dialog, GWLP_USERDATA, lParam);
        runOf(dialog)->field.takeOver(GetDlgItem(dialog, IDC_USER_PIN));
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
    // Nothing is to be allocated while Windows waits for the dialog procedure.
    dialogPin.reserve(PinField::longestText);
    Run run{dialogPin, {}};
    logDebug("Password dialog show window before");
    const auto module = static_cast<HINSTANCE>(tokenState().moduleHandle.load());
    // Unicode: an ANSI control has no place for the field's stand-ins.
    const INT_PTR result =
        DialogBoxParamW(module, MAKEINTRESOURCEW(IDD_PASSWORD), nullptr, onDialogMessage, reinterpret_cast<LPARAM>(&run));
    logDebug("Password dialog show window after");
    if (result != 0) logError("Password dialog creation failed : ", result);
    return 0;
}

} // namespace quelta
