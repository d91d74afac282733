#include "support/module_test.h"

#include "csp/context.h"
#include "ksp/provider.h"
#include "log/log_writer.h"
#include "token/pin_prompt.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

#include <array>
#include <mutex>
#include <optional>
#include <thread>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string textOf(const Pin& pin)
{
    return pin->c_str();
}

std::optional<std::string> ensureForCsp()
{
    CspContext context;
    context.serialNumber = FakeDeviceLibrary::deviceId;
    const auto outcome = ensurePinValidated(context);
    if (outcome) return textOf(*outcome);
    EXPECT_EQ(outcome.error().lastError, static_cast<DWORD>(NTE_FAIL));
    return std::nullopt;
}

std::optional<std::string> ensureForKsp()
{
    KspProvider provider;
    provider.deviceId = FakeDeviceLibrary::deviceId;
    const auto pin = kspEnsurePin(provider);
    return pin ? std::optional(textOf(*pin)) : std::nullopt;
}

// One provider's way to the PIN.
struct Face {
    const char* name;
    std::optional<std::string> (*ensurePin)();
    const char* cached;
    const char* asking;
    const char* cancelled;
    const char* clockMessage;
    // What it says in the end when there is no PIN.
    std::vector<LogLine> refusal;
};

const Face faces[] = {
    {"Csp",
     ensureForCsp,
     "PIN already validated -- no need to ask again",
     "Password not validated or empty -- ask for PIN",
     "User cancelled password dialog",
     "System time mismatch, Kidly login to Token Manager",
     {error("Password validation failed")}},
    {"Ksp",
     ensureForKsp,
     "KSP: PIN already validated",
     "KSP: Password not validated, checking SSO",
     "KSP: User cancelled password dialog",
     "System time mismatch, Kindly login to Token Manager",
     {}},
};

constexpr const char tokenInfoCall[] = "getTokenInfo(TOKEN-1)";

std::string pinCheck(const std::string& pin)
{
    return "validatePassword(TOKEN-1, " + pin + ", 1, 0)";
}

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

bool validated()
{
    return tokenState().pinCache.validated();
}

} // namespace

class PinPrompt : public ModuleTest, public ::testing::WithParamInterface<Face> {
protected:
    std::optional<std::string> ensurePin() { return GetParam().ensurePin(); }

    // The log of a prompt with this many dialogs, up to its own last lines.
    void expectPromptLog(int dialogs, std::vector<LogLine> end, std::source_location where = std::source_location::current())
    {
        std::vector<LogLine> lines = {debug(GetParam().asking)};
        for (; dialogs > 0; --dialogs) {
            lines.insert(lines.end(), {debug("Password dialog show window"), debug("Password dialog show window before"),
                                       debug("Password dialog show window after")});
        }
        lines.insert(lines.end(), end.begin(), end.end());
        expectLog(lines, where);
    }

    void expectNoPinLeft(std::source_location where = std::source_location::current())
    {
        const ::testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "the cache");
        EXPECT_FALSE(validated());
        EXPECT_EQ(cachedPin(), "");
    }

    std::vector<LogLine> cancelledLines()
    {
        std::vector<LogLine> lines = {debug(GetParam().cancelled)};
        lines.insert(lines.end(), GetParam().refusal.begin(), GetParam().refusal.end());
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(Both, PinPrompt, ::testing::ValuesIn(faces),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(PinPrompt, AcceptedPinIsAskedForOnceAndUsedAgain)
{
    user.entersPin("1234");
    EXPECT_EQ(ensurePin(), "1234");
    EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall, pinCheck("1234")));
    expectPromptLog(1, {});

    EXPECT_EQ(ensurePin(), "1234");
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    expectLog({debug(GetParam().cached)});
}

TEST_P(PinPrompt, SingleSignOnShowsNothingCachesNothingAndIsAskedForEachTime)
{
    token.openSingleSignOn();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(ensurePin(), "");
        EXPECT_TRUE(validated());
        EXPECT_EQ(cachedPin(), "");
        EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall));
        expectPromptLog(0, {});
    }
}

TEST_P(PinPrompt, SingleSignOnNeedsSerialNumberAndBothFlags)
{
    struct Row {
        const char* serialNumber;
        std::int32_t enabled;
        std::int32_t open;
    };
    for (const Row& row : {Row{"", 1, 1}, Row{"SN-1", 0, 1}, Row{"SN-1", 1, 0}, Row{"SN-1", 2, 1}, Row{"SN-1", 1, -1}}) {
        token.info.serialNumber = row.serialNumber;
        token.info.singleSignOnEnabled = row.enabled;
        token.info.singleSignOnOpen = row.open;
        user.cancels();
        EXPECT_EQ(ensurePin(), std::nullopt) << row.serialNumber << row.enabled << row.open;
    }
}

TEST_P(PinPrompt, GivingUpChecksNoPinAndLeavesNone)
{
    for (const bool byCancel : {true, false}) {
        cachePin("");
        user.meetsPinDialog([byCancel](PinDialog dialog) {
            EXPECT_FALSE(validated()) << "the old state must be gone while the user is asked";
            dialog.type("1234");
            byCancel ? dialog.pressCancel() : dialog.close();
        });
        EXPECT_EQ(ensurePin(), std::nullopt);
        EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall));
        expectPromptLog(1, cancelledLines());
        expectNoPinLeft();
    }
}

TEST_P(PinPrompt, WrongPinIsToldAndAskedForAgain)
{
    user.entersPin("0000");
    user.acknowledges("Invalid user pin. Remaining attempts(9)");
    user.entersPin("9999");
    user.acknowledges("Invalid user pin. Remaining attempts(8)");
    user.entersPin("1234");
    EXPECT_EQ(ensurePin(), "1234");
    EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall, pinCheck("0000"), pinCheck("9999"), pinCheck("1234")));
    EXPECT_EQ(cachedPin(), "1234");
    expectPromptLog(3, {});
}

TEST_P(PinPrompt, WrongPinAndCancelLeaveNone)
{
    user.entersPin("0000");
    user.acknowledges("Invalid user pin. Remaining attempts(9)");
    user.cancels();
    EXPECT_EQ(ensurePin(), std::nullopt);
    EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall, pinCheck("0000")));
    expectPromptLog(2, cancelledLines());
    expectNoPinLeft();
}

TEST_P(PinPrompt, LockedPinEndsThePrompt)
{
    token.attempts = 1;
    user.entersPin("0000");
    user.acknowledges("User pin locked, re-initialise device");
    EXPECT_EQ(ensurePin(), std::nullopt);
    expectPromptLog(1, GetParam().refusal);
    expectNoPinLeft();
}

TEST_P(PinPrompt, ClockMismatchEndsThePromptUnlessAttemptsAreCounted)
{
    token.willAnswer(Call::validatePassword, 48);
    user.entersPin("1234");
    user.acknowledges(GetParam().clockMessage);
    EXPECT_EQ(ensurePin(), std::nullopt);
    expectPromptLog(1, GetParam().refusal);

    token.willAnswerPin(48, 3);
    user.entersPin("1234");
    user.acknowledges(GetParam().clockMessage);
    user.entersPin("1234");
    EXPECT_EQ(ensurePin(), "1234");
    expectPromptLog(2, {});
}

TEST_P(PinPrompt, DialogThatCanNotBeMadeCountsAsCancelled)
{
    tokenState().moduleHandle = GetModuleHandleA("ntdll.dll");
    EXPECT_EQ(ensurePin(), std::nullopt);
    EXPECT_THAT(token.takeCalls(), ElementsAre(tokenInfoCall));
    std::vector<LogLine> end = {error("Password dialog creation failed : -1")};
    end.insert(end.end(), {debug(GetParam().cancelled)});
    end.insert(end.end(), GetParam().refusal.begin(), GetParam().refusal.end());
    expectPromptLog(1, end);
    expectNoPinLeft();
}

TEST_P(PinPrompt, LongestPinArrivesWhole)
{
    token.pin = std::string(63, 'p');
    user.entersPin(token.pin);
    EXPECT_EQ(ensurePin(), token.pin);
}

// One step after the other: Wine's edit controls share a cache of glyphs, and two threads that draw or drop theirs in the same
// moment break it.
TEST_P(PinPrompt, TwoThreadsThatAskAtOnceReadTheirOwnDialogs)
{
    token.willAnswer(Call::validatePassword, 0);
    token.willAnswer(Call::validatePassword, 0);
    std::array<std::optional<std::string>, 2> pins;
    std::jthread second;
    // Held, it stops both threads at the line that follows their dialog, until both texts were given. It is in its place before
    // either thread looks there.
    std::mutex atTheLog;
    logMutexSlot() = &atTheLog;
    user.meetsPinDialog([&](PinDialog older) {
        older.type("1111");
        older.waitUntilDrawn();
        second = callerThread([&] { pins[1] = ensurePin(); });
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
    pins[0] = ensurePin();
    second.join();
    logMutexSlot() = nullptr;
    EXPECT_THAT(pins, ElementsAre("1111", "2222"));
}

class GivenPin : public ModuleTest {};

TEST_F(GivenPin, IsCachedOnlyIfTheTokenAcceptsIt)
{
    const std::string id = FakeDeviceLibrary::deviceId;
    EXPECT_EQ(validateGivenPin(Token(id, nullptr), "1234"), 0);
    EXPECT_EQ(cachedPin(), "1234");
    EXPECT_EQ(validateGivenPin(Token(id, nullptr), "0000"), 5);
    EXPECT_EQ(cachedPin(), "1234") << "a refused PIN takes nothing away";
    EXPECT_THAT(token.takeCalls(), ElementsAre(pinCheck("1234"), pinCheck("0000")));
}

} // namespace quelta::test
