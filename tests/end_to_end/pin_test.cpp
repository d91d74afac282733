#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;

constexpr DWORD silent = 0x40;
constexpr const char locked[] = "User pin locked, re-initialise device";

} // namespace

// The real dialog over the real token. Both interfaces are open; a test signs through one of them.
class TokenPin : public EndToEndTest, public ::testing::WithParamInterface<Way> {
protected:
    DWORD signThrough(Way way) const { return way == Way::csp ? trySign(context) : static_cast<DWORD>(key.trySign()); }
    DWORD sign() const { return signThrough(GetParam()); }
    DWORD signThroughTheOther() const { return signThrough(GetParam() == Way::csp ? Way::ksp : Way::csp); }

    const Context context = openContext("rsa2048");
    const KeyStorage storage;
    const StoredKey key = storage.openLabelled("rsa2048");
};

INSTANTIATE_TEST_SUITE_P(BothWays, TokenPin, ::testing::Values(Way::csp, Way::ksp), nameOfWay);

TEST_P(TokenPin, LocksWithTheLastAttemptAndOnceRightIsKeptForBothInterfaces)
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
    user.entersPin("000000");
    user.acknowledges("Invalid user pin. Remaining attempts(2)");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
}

TEST_P(TokenPin, OpenSessionNeedsNoneAndEachExpiryCostsOnePrompt)
{
    drive("sso on");
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
    drive("sso expire");
    user.cancels();
    EXPECT_EQ(sign(), static_cast<DWORD>(NTE_FAIL));
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    // The PIN is in the cache now.
    drive("sso on");
    drive("sso expire");
    log.forget();
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
    EXPECT_THAT(log.takeLines(), Contains(Field(&LogLine::text, HasSubstr("SSO expired, re-prompting for PIN"))).Times(1));
}

TEST_P(TokenPin, IsForgottenWhenTheTokenIsTakenOut)
{
    storage.usePin();
    EXPECT_EQ(sign(), 0U);
    drive("unplug");
    const ULONGLONG end = GetTickCount64() + 10000;
    while (key.trySign(silent) != NTE_SILENT_CONTEXT && GetTickCount64() < end) Sleep(20);
    ASSERT_EQ(key.trySign(silent), NTE_SILENT_CONTEXT) << "The PIN outlives the token's removal";
    drive("plug");
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
}

} // namespace quelta::test
