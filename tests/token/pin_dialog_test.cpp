#include "support/heap.h"
#include "support/module_test.h"

#include "csp/context.h"
#include "log/log_writer.h"
#include "token/pin_dialog.h"

#include <gmock/gmock.h>

#include <array>
#include <mutex>
#include <thread>

namespace quelta::test {

namespace {

// Appears within a few seconds.
PinDialog otherDialogThan(PinDialog known)
{
    for (int tries = 0; tries < 500; ++tries) {
        for (const PinDialog dialog : visiblePinDialogs()) {
            if (dialog.window() != known.window()) return dialog;
        }
        Sleep(10);
    }
    ADD_FAILURE() << "there is no second dialog";
    return known;
}

using Edges = std::array<LONG, 4>;

Edges edgesOf(const RECT& rectangle)
{
    return {rectangle.left, rectangle.top, rectangle.right, rectangle.bottom};
}

// Left, top, width and height in dialog units.
struct Place {
    LONG left, top, width, height;

    Edges inPixels(HWND dialog) const
    {
        RECT each{left, top, width, height};
        MapDialogRect(dialog, &each);
        return {each.left, each.top, each.left + each.right, each.top + each.bottom};
    }
};

std::string givenPin()
{
    CspContext context;
    context.serialNumber = FakeDeviceLibrary::deviceId;
    const auto pin = ensurePinValidated(context);
    return pin ? (***pin).c_str() : "none";
}

} // namespace

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

TEST_F(PinDialogWindow, OnlyLoginGivesTheText)
{
    for (const auto& [leave, text] : {std::pair(&PinDialog::pressLogin, "p w\\%s9"),
                                      {&PinDialog::pressCancel, ""},
                                      {&PinDialog::close, ""},
                                      {&PinDialog::pressEnter, "p w\\%s9"}}) {
        EXPECT_EQ(textAfter([leave = leave](PinDialog dialog) {
                      dialog.type("p w\\%s9");
                      (dialog.*leave)();
                  }),
                  text);
    }
}

TEST_F(PinDialogWindow, LoginNeedsNoMemory)
{
    heap();
    const std::string pin = "longer than what a string keeps inside itself";
    EXPECT_EQ(textAfter([&pin](PinDialog dialog) {
                  dialog.type(pin);
                  heap().left = 0;
                  dialog.pressLogin();
              }),
              pin);
    EXPECT_TRUE(heap().refused) << "the line of the log that follows has found none";
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

TEST_F(PinDialogWindow, LooksAsDesigned)
{
    textAfter([](PinDialog dialog) {
        const HWND window = dialog.window();
        RECT screen{}, outside{}, inside{};
        SystemParametersInfoA(SPI_GETWORKAREA, 0, &screen, 0);
        GetWindowRect(window, &outside);
        GetClientRect(window, &inside);
        EXPECT_EQ(edgesOf(inside), (Place{0, 0, 200, 78}.inPixels(window)));
        EXPECT_NEAR(outside.left + outside.right, screen.left + screen.right, 1);
        EXPECT_NEAR(outside.top + outside.bottom, screen.top + screen.bottom, 1);
        constexpr LONG_PTR style = WS_POPUP | WS_CAPTION | WS_SYSMENU;
        EXPECT_EQ(GetWindowLongPtrA(window, GWL_STYLE) & style, style);
        EXPECT_NE(GetWindowLongPtrA(window, GWL_EXSTYLE) & WS_EX_TOPMOST, 0) << "it must not be hidden";
        EXPECT_EQ(GetWindow(window, GW_OWNER), nullptr);

        HWND control = GetWindow(window, GW_CHILD);
        for (const auto& [text, place] : {std::pair<std::string, Place>{"Please enter user pin to verify,", {12, 6, 163, 13}},
                                          {"User Pin :", {12, 30, 42, 12}},
                                          {"", {65, 27, 111, 14}},
                                          {"Login", {64, 50, 50, 14}},
                                          {"Cancel", {127, 50, 50, 14}}}) {
            EXPECT_EQ(textOf(control), text);
            RECT actual{};
            GetWindowRect(control, &actual);
            MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&actual), 2);
            EXPECT_EQ(edgesOf(actual), place.inPixels(window)) << text;
            control = GetWindow(control, GW_HWNDNEXT);
        }
        EXPECT_EQ(control, nullptr);
        constexpr LONG_PTR hidden = ES_PASSWORD | ES_AUTOHSCROLL | WS_TABSTOP;
        EXPECT_EQ(GetWindowLongPtrA(dialog.edit(), GWL_STYLE) & hidden, hidden);
        dialog.pressCancel();
    });
}

// One step after the other: Wine's edit controls share a cache of glyphs, and two threads that draw or drop theirs in the same
// moment break it.
TEST_F(PinDialogWindow, TwoThreadsThatAskAtOnceReadTheirOwnDialogs)
{
    for (int i = 0; i < 2; ++i) token.willAnswer(Call::validatePassword, 0);
    std::array<std::string, 2> pins;
    std::jthread second;
    // Held, it stops both threads at the line that follows their dialog, until both texts were given. It is in its place before
    // either thread looks there.
    std::mutex atTheLog;
    logMutexSlot() = &atTheLog;
    user.meetsPinDialog([&](PinDialog older) {
        older.type("1111");
        older.waitUntilDrawn();
        second = callerThread([&] { pins[1] = givenPin(); });
        const PinDialog newer = otherDialogThan(older);
        newer.type("2222");
        newer.waitUntilDrawn();
        const std::lock_guard lock(atTheLog);
        // Without the mouse, which would bring it to the front and have both drawn.
        PostMessageA(older.window(), WM_COMMAND, IDOK, 0);
        while (IsWindow(older.window())) Sleep(5);
        newer.pressLogin();
        while (IsWindow(newer.window())) Sleep(5);
    });
    pins[0] = givenPin();
    second.join();
    logMutexSlot() = nullptr;
    EXPECT_THAT(pins, ::testing::ElementsAre("1111", "2222"));
}

} // namespace quelta::test
