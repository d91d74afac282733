#include "support/module_test.h"

#include "token/pin_dialog.h"

#include <gmock/gmock.h>

namespace quelta::test {

class PinDialogWindow : public ModuleTest {
protected:
    // Returns the text that the dialog returns after the user's action.
    std::string textAfter(std::function<void(PinDialog)> action)
    {
        user.meetsPinDialog(std::move(action));
        std::string pin = "what was there before";
        EXPECT_EQ(showPasswordDialog(pin), 0);
        return pin;
    }
};

TEST_F(PinDialogWindow, LoginIsAllowedFrom4To63Characters)
{
    textAfter([](PinDialog dialog) {
        EXPECT_FALSE(dialog.loginAllowed()) << "nothing typed yet";
        std::size_t typed = 0;
        for (const auto& [length, allowed] :
             {std::pair<std::size_t, bool>{3, false}, {4, true}, {63, true}, {64, false}, {65, false}, {63, true}, {3, false}}) {
            if (length > typed) dialog.type(std::string(length - typed, '7'));
            if (length < typed) dialog.erase(typed - length);
            typed = length;
            EXPECT_EQ(dialog.loginAllowed(), allowed) << length << " characters";
        }
        for (const char* text : {"1234", ""}) {
            SendMessageA(dialog.edit(), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
            EXPECT_EQ(dialog.loginAllowed(), *text != '\0') << "set by a program";
        }
        dialog.pressCancel();
    });
}

// The second dialog opens while the first one waits, as it would in another thread.
TEST_F(PinDialogWindow, TwoDialogsReadTheirOwnPins)
{
    static std::string inner;
    SetTimer(nullptr, 0, 300, [](HWND, UINT, UINT_PTR timer, DWORD) {
        KillTimer(nullptr, timer);
        showPasswordDialog(inner);
    });
    const std::string outer = textAfter([](PinDialog first) {
        first.type("1111");
        std::vector<HWND> shown;
        while ((shown = visibleDialogs()).size() < 2) Sleep(5);
        const PinDialog second(shown[shown[0] == first.window() ? 1 : 0]);
        second.type("2222");
        second.pressEnter();
        while (IsWindow(second.window())) Sleep(5);
        first.pressLogin();
    });
    EXPECT_THAT((std::vector{outer, inner}), ::testing::UnorderedElementsAre("1111", "2222"));
}

} // namespace quelta::test
