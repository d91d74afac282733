#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

enum class Way { csp, ksp };

constexpr DWORD silent = 0x40;
constexpr const char locked[] = "User pin locked, re-initialise device";

std::size_t count(const std::string& text, const std::string& what)
{
    std::size_t found = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++found;
    return found;
}

} // namespace

// The real dialog over the real token. Both interfaces are open; a test signs through one of them.
class TokenPin : public EndToEndTest, public ::testing::WithParamInterface<Way> {
protected:
    DWORD signThrough(Way way) const { return way == Way::csp ? trySign(context) : static_cast<DWORD>(key.trySign()); }
    DWORD sign() const { return signThrough(GetParam()); }
    DWORD signThroughTheOther() const { return signThrough(GetParam() == Way::csp ? Way::ksp : Way::csp); }

    void waitUntilForgotten() const
    {
        for (const ULONGLONG end = GetTickCount64() + 10000; GetTickCount64() < end; Sleep(20)) {
            if (key.trySign(silent) == NTE_SILENT_CONTEXT) return;
        }
        ADD_FAILURE() << "The PIN outlives the token's removal";
    }

    const Context context = openContext("rsa2048");
    const KeyStorage storage;
    const StoredKey key = storage.openLabelled("rsa2048");
};

INSTANTIATE_TEST_SUITE_P(BothWays, TokenPin, ::testing::Values(Way::csp, Way::ksp),
                         [](const auto& row) { return row.param == Way::csp ? "csp" : "ksp"; });

TEST_P(TokenPin, IsAskedForUntilRightAndThenKeptForBothInterfaces)
{
    user.entersPin("000000");
    user.acknowledges("Invalid user pin. Remaining attempts(2)");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
}

TEST_P(TokenPin, LocksWithTheLastAttemptUntilItIsUnlocked)
{
    user.entersPin("000000");
    user.acknowledges("Invalid user pin. Remaining attempts(2)");
    user.entersPin("111111");
    user.acknowledges("Invalid user pin. Remaining attempts(1)");
    user.entersPin("222222");
    user.acknowledges(locked);
    EXPECT_EQ(sign(), static_cast<DWORD>(NTE_FAIL));
    user.entersPin(tokenPin);
    user.acknowledges(locked);
    EXPECT_EQ(sign(), static_cast<DWORD>(NTE_FAIL));
    drive("pin unlock");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
}

TEST_P(TokenPin, ClockThatIsWrongEndsThePrompt)
{
    drive("clock mismatch");
    user.entersPin(tokenPin);
    user.acknowledges(GetParam() == Way::csp ? "System time mismatch, Kidly login to Token Manager"
                                             : "System time mismatch, Kindly login to Token Manager");
    EXPECT_EQ(sign(), static_cast<DWORD>(NTE_FAIL));
    drive("clock ok");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
}

TEST_P(TokenPin, OpenSessionNeedsNoneAndAnExpiredOneAsksAgain)
{
    drive("sso on");
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
    drive("sso expire");
    user.cancels();
    EXPECT_EQ(sign(), static_cast<DWORD>(NTE_FAIL));
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
}

TEST_P(TokenPin, SessionThatExpiresUnderACachedPinCostsOnePrompt)
{
    usePin(context);
    EXPECT_EQ(sign(), 0U);
    drive("sso on");
    drive("sso expire");
    log.forget();
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
    EXPECT_EQ(count(log.takeText(), "SSO expired, re-prompting for PIN"), 1U);
}

TEST_P(TokenPin, IsForgottenWhenTheTokenIsTakenOut)
{
    storage.usePin();
    EXPECT_EQ(sign(), 0U);
    drive("unplug");
    waitUntilForgotten();
    drive("plug");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
}

} // namespace quelta::test
