#include "support/scenario.h"

#include "csp/context.h"
#include "ksp/provider.h"

namespace quelta::test {

class PinPromptTranscript : public Scenario {
protected:
    PinPromptTranscript() { context.serialNumber = provider.deviceId = FakeDeviceLibrary::deviceId; }

    void asks(const char* name, const std::function<std::string()>& pinOrRefusal)
    {
        recorder.recordInner(name, "", [&] {
            const std::string answer = pinOrRefusal();
            return answer + ", cache " + (tokenState().pinCache.pinIfValidated() ? quoted(cachedPin().c_str()) : "empty");
        });
    }
    void cspAsks()
    {
        asks("ensurePinValidated", [&] {
            const auto pin = ensurePinValidated(context);
            return pin ? quoted((***pin).c_str()) : errorName(pin.error().lastError.value_or(0));
        });
    }
    void kspAsks()
    {
        asks("kspEnsurePin", [&] {
            const auto pin = kspEnsurePin(provider);
            return pin ? quoted((***pin).c_str()) : "no PIN";
        });
    }
    // Lets each provider ask, with a fresh token and nothing cached. `prepare` sets up the user.
    void eachAsks(const std::function<void()>& prepare)
    {
        for (const auto asks : {&PinPromptTranscript::cspAsks, &PinPromptTranscript::kspAsks}) {
            tokenState().pinCache.clear();
            token.attempts = 10;
            prepare();
            (this->*asks)();
        }
    }
    void entersWrongPin()
    {
        user.entersPin("0000");
        user.acknowledges();
    }

    CspContext context;
    KspProvider provider;
};

TRANSCRIPT(PinPromptTranscript, "the PIN is asked for once and serves both providers")
{
    user.entersPin("1234");
    cspAsks();
    cspAsks();
    kspAsks();
    tokenState().pinCache.clear();
    user.entersPin("1234");
    kspAsks();
    cspAsks();
}

TRANSCRIPT(PinPromptTranscript, "the dialog is in the middle of the screen and above all windows")
{
    errorsAlone();
    user.meetsPinDialog(
        [](PinDialog dialog) {
            RECT screen{}, outside{};
            SystemParametersInfoA(SPI_GETWORKAREA, 0, &screen, 0);
            GetWindowRect(dialog.window(), &outside);
            EXPECT_NEAR(outside.left + outside.right, screen.left + screen.right, 1);
            EXPECT_NEAR(outside.top + outside.bottom, screen.top + screen.bottom, 1);
            EXPECT_NE(GetWindowLongPtrA(dialog.window(), GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
            EXPECT_NE(GetWindowLongPtrA(dialog.edit(), GWL_STYLE) & ES_PASSWORD, 0);
            dialog.pressCancel();
        },
        "Cancel");
    cspAsks();
}

TRANSCRIPT(PinPromptTranscript, "a longer PIN is sent whole, and CryptoAPI keeps 63 bytes of it")
{
    errorsAlone();
    token.pin = std::string(62, 'p') + "abc";
    eachAsks([this] {
        user.meetsPinDialog(
            [this](PinDialog dialog) {
                dialog.type(token.pin);
                PostMessageA(dialog.window(), WM_COMMAND, IDOK, 0);
            },
            token.pin + ", Login although it is disabled");
    });
}

TRANSCRIPT(PinPromptTranscript, "single sign-on shows nothing, caches nothing and is asked for each time")
{
    token.openSingleSignOn();
    cspAsks();
    cspAsks();
    kspAsks();
}

TRANSCRIPT(PinPromptTranscript, "a wrong PIN is told and asked for again until it is locked")
{
    errorsAlone();
    eachAsks([this] {
        entersWrongPin();
        user.entersPin("1234");
    });
    eachAsks([this] {
        token.attempts = 2;
        for (int i = 0; i < 2; ++i) entersWrongPin();
    });
    recorder.note("a clock mismatch ends the prompt unless attempts are counted");
    eachAsks([this] {
        token.willAnswer(Call::validatePassword, 48);
        user.entersPin("1234");
        user.acknowledges();
    });
    eachAsks([this] {
        token.willAnswerPin(48, 3);
        user.entersPin("1234");
        user.acknowledges();
        user.entersPin("1234");
    });
}

TRANSCRIPT(PinPromptTranscript, "a user who cancels leaves no PIN, and nothing is checked")
{
    eachAsks([this] {
        // A sign-on leaves an empty PIN in the cache.
        cachePin("");
        user.meetsPinDialog(
            [](PinDialog dialog) {
                EXPECT_FALSE(tokenState().pinCache.pinIfValidated()) << "gone while the user is asked";
                dialog.type("1234");
                dialog.pressCancel();
            },
            "1234, Cancel");
    });
    errorsAlone();
    eachAsks([this] { user.closes(); });
    eachAsks([this] {
        entersWrongPin();
        user.cancels();
    });
}

TRANSCRIPT(PinPromptTranscript, "a dialog that can't be made counts as cancelled")
{
    tokenState().moduleHandle = GetModuleHandleA("ntdll.dll");
    eachAsks([] {});
}

} // namespace quelta::test
