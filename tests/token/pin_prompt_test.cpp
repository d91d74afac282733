#include "support/module_test.h"

#include "csp/context.h"
#include "log/log_writer.h"

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

std::string givenPin()
{
    CspContext context;
    context.serialNumber = FakeDeviceLibrary::deviceId;
    const auto pin = ensurePinValidated(context);
    return pin ? (***pin).c_str() : "none";
}

} // namespace

using PinPrompt = ModuleTest;

// One step after the other: Wine's edit controls share a cache of glyphs, and two threads that draw or drop theirs in the same
// moment break it.
TEST_F(PinPrompt, TwoThreadsThatAskAtOnceReadTheirOwnDialogs)
{
    token.willAnswer(Call::validatePassword, 0);
    token.willAnswer(Call::validatePassword, 0);
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
