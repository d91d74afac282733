#include "support/module_test.h"

#include "token/pin_dialog.h"

#include <gtest/gtest.h>

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

TEST_F(PinDialogWindow, EnterIsNothingBeforeLoginIsAllowed)
{
    EXPECT_EQ(textAfter([](PinDialog dialog) {
                  dialog.type("12");
                  dialog.pressEnter();
                  Sleep(200);
                  EXPECT_TRUE(IsWindowVisible(dialog.window())) << "too short a text must not be sent to the token";
                  dialog.type("34");
                  dialog.pressEnter();
              }),
              "1234");
}

} // namespace quelta::test
