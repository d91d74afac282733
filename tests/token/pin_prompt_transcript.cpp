#include "support/scenario.h"

#include "csp/context.h"
#include "ksp/provider.h"
#include "token/pin_prompt.h"

namespace quelta::test {

class PinPromptTranscript : public Scenario {
public:
    PinPromptTranscript() { context.serialNumber = provider.deviceId = FakeDeviceLibrary::deviceId; }

    void cspAsks()
    {
        recorder.recordInner("ensurePinValidated", "", [this] {
            const auto pin = ensurePinValidated(context);
            return withCache(pin ? quoted((***pin).c_str()) : errorName(pin.error().lastError.value_or(0)));
        });
    }
    void kspAsks()
    {
        recorder.recordInner("kspEnsurePin", "", [this] {
            const auto pin = kspEnsurePin(provider);
            return withCache(pin ? quoted((***pin).c_str()) : "no PIN");
        });
    }

protected:
    void validateGiven(const char* pin)
    {
        recorder.recordInner("validateGivenPin", quoted(pin),
                             [&] { return withCache(std::to_string(validateGivenPin(provider.token(), pin))); });
    }

    // Each provider with a fresh token and nothing cached, and the user as `prepare` says.
    void eachAsks(const std::function<void()>& prepare)
    {
        for (const auto asks : {&PinPromptTranscript::cspAsks, &PinPromptTranscript::kspAsks}) {
            tokenState().pinCache.clear();
            token.attempts = 10;
            prepare();
            (this->*asks)();
        }
    }

    static std::string withCache(const std::string& answer)
    {
        return answer + ", cache " + (tokenState().pinCache.validated() ? quoted(cachedPin().c_str()) : "empty");
    }

    CspContext context;
    KspProvider provider;
};

TEST_F(PinPromptTranscript, PINIsAskedForOnceAndServesBothProviders)
{
    for (const auto& order : {std::pair(&PinPromptTranscript::cspAsks, &PinPromptTranscript::kspAsks),
                              std::pair(&PinPromptTranscript::kspAsks, &PinPromptTranscript::cspAsks)}) {
        tokenState().pinCache.clear();
        user.entersPin("1234");
        (this->*order.first)();
        (this->*order.first)();
        (this->*order.second)();
    }
}

TEST_F(PinPromptTranscript, LongestPINArrivesWhole)
{
    errorsAlone();
    token.pin = std::string(63, 'p');
    user.entersPin(token.pin);
    cspAsks();
}

TEST_F(PinPromptTranscript, SingleSignOnShowsNothingCachesNothingAndIsAskedForEachTime)
{
    token.openSingleSignOn();
    cspAsks();
    cspAsks();
    kspAsks();
}

TEST_F(PinPromptTranscript, WrongPINIsToldAndAskedForAgain)
{
    eachAsks([this] {
        user.entersPin("0000");
        user.acknowledges();
        user.entersPin("1234");
    });
}

TEST_F(PinPromptTranscript, LockedPINEndsThePrompt)
{
    errorsAlone();
    eachAsks([this] {
        token.attempts = 2;
        for (int i = 0; i < 2; ++i) {
            user.entersPin("0000");
            user.acknowledges();
        }
    });
}

TEST_F(PinPromptTranscript, ClockMismatchEndsThePromptUnlessAttemptsAreCounted)
{
    errorsAlone();
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

TEST_F(PinPromptTranscript, WhoGivesUpIsNotCheckedAndLeavesNoPIN)
{
    eachAsks([this] {
        // As a sign-on leaves it, for which no PIN is cached.
        cachePin("");
        user.meetsPinDialog(
            [](PinDialog dialog) {
                EXPECT_FALSE(tokenState().pinCache.validated()) << "gone while the user is asked";
                dialog.type("1234");
                dialog.pressCancel();
            },
            "1234, Cancel");
    });
    errorsAlone();
    eachAsks([this] { user.closes(); });
    eachAsks([this] {
        user.entersPin("0000");
        user.acknowledges();
        user.cancels();
    });
}

TEST_F(PinPromptTranscript, DialogThatCanNotBeMadeCountsAsCancelled)
{
    tokenState().moduleHandle = GetModuleHandleA("ntdll.dll");
    eachAsks([] {});
}

TEST_F(PinPromptTranscript, PINThatACallerGivesIsCachedIfTheTokenAcceptsIt)
{
    validateGiven("0000");
    validateGiven("1234");
    recorder.note("a refused one takes nothing away");
    validateGiven("0000");
}

} // namespace quelta::test
