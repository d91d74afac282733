#include "support/module_test.h"

#include "token/pin_dialog.h"

#include <windows.h>

#include <array>

namespace quelta::test {

class PinDialogWindow : public ModuleTest {
protected:
    // What the dialog leaves behind when the user has done this with it.
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
             {std::pair<std::size_t, bool>{3, false}, {4, true}, {63, true}, {64, false}, {65, false}}) {
            dialog.type(std::string(length - typed, '7'));
            typed = length;
            EXPECT_EQ(dialog.loginAllowed(), allowed) << length << " characters";
        }
        dialog.erase(2);
        EXPECT_TRUE(dialog.loginAllowed()) << "back to 63";
        dialog.erase(60);
        EXPECT_FALSE(dialog.loginAllowed()) << "back to 3";
        dialog.pressCancel();
    });
}

TEST_F(PinDialogWindow, OnlyLoginGivesTheText)
{
    EXPECT_EQ(textAfter([](PinDialog dialog) {
                  dialog.type("p w\\%s9");
                  dialog.pressLogin();
              }),
              "p w\\%s9");
    EXPECT_EQ(textAfter([](PinDialog dialog) {
                  dialog.type("1234");
                  dialog.pressCancel();
              }),
              "");
    EXPECT_EQ(textAfter([](PinDialog dialog) {
                  dialog.type("1234");
                  dialog.close();
              }),
              "");
}

TEST_F(PinDialogWindow, EnterIsLoginOnceThatIsAllowed)
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

TEST_F(PinDialogWindow, LooksAsDesigned)
{
    textAfter([](PinDialog dialog) {
        const auto isAt = [&](HWND control, RECT place) {
            RECT expected = {place.left, place.top, place.left + place.right, place.top + place.bottom};
            MapDialogRect(dialog.window(), &expected);
            RECT actual{};
            GetWindowRect(control, &actual);
            MapWindowPoints(nullptr, dialog.window(), reinterpret_cast<POINT*>(&actual), 2);
            return EqualRect(&expected, &actual) != FALSE;
        };
        EXPECT_TRUE(isAt(dialog.edit(), {65, 27, 111, 14}));
        EXPECT_TRUE(isAt(dialog.loginButton(), {64, 50, 50, 14}));
        EXPECT_TRUE(isAt(dialog.cancelButton(), {127, 50, 50, 14}));

        EXPECT_NE(GetWindowLongPtrA(dialog.edit(), GWL_STYLE) & ES_PASSWORD, 0) << "the PIN must not be readable";
        EXPECT_NE(GetWindowLongPtrA(dialog.window(), GWL_EXSTYLE) & WS_EX_TOPMOST, 0)
            << "it must not hide behind its application";
        EXPECT_EQ(GetWindow(dialog.window(), GW_OWNER), nullptr);

        std::string texts;
        for (HWND child = GetWindow(dialog.window(), GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
            std::array<char, 64> text{};
            GetWindowTextA(child, text.data(), static_cast<int>(text.size()));
            texts += text.data() + std::string("|");
        }
        EXPECT_EQ(texts, "Please enter user pin to verify,|User Pin :||Login|Cancel|");
        dialog.pressCancel();
    });
}

} // namespace quelta::test
