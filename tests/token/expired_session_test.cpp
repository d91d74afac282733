#include "support/module_test.h"

#include "token/expired_session.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;

Pin makePin(const char* text)
{
    return std::make_shared<const PinText>(text);
}

constexpr const char expiredText[] = "SSO expired, re-prompting for PIN";

} // namespace

class ExpiredSession : public ModuleTest {
protected:
    ExpiredSession() { tokenState().pinCache.setValidated(makePin("old")); }

    // Calls a token that gives these answers in turn, with a user who gives this PIN when asked again.
    std::expected<std::expected<int, int>, PinRefused> callToken(std::vector<int> answers, std::optional<Pin> renewed)
    {
        const auto call = [&](const PinText& pin) -> std::expected<int, int> {
            steps.push_back(std::string("call with ") + pin.c_str());
            const int answer = answers.at(0);
            answers.erase(answers.begin());
            if (answer != 0) return std::unexpected(answer);
            return 256;
        };
        const auto askAgain = [&] {
            steps.push_back(tokenState().pinCache.validated() ? "asked with the old PIN still cached" : "asked");
            return renewed;
        };
        return callWithFreshPin(makePin("old"), expiredText, call, askAgain);
    }

    std::vector<std::string> steps;
};

TEST_F(ExpiredSession, ReplacedPinIsUsedForOneMoreCall)
{
    const auto outcome = callToken({49, 0}, makePin("new"));
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(*outcome, 256);
    EXPECT_THAT(steps, ElementsAre("call with old", "asked", "call with new"));
    expectLog({debug(expiredText)});
}

TEST_F(ExpiredSession, SecondExpiryIsAFailureNotAnotherPrompt)
{
    const auto outcome = callToken({49, 49}, makePin("new"));
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(*outcome, std::unexpected(49));
    EXPECT_THAT(steps, ElementsAre("call with old", "asked", "call with new"));
}

TEST_F(ExpiredSession, RefusedPinIsNotCalledWith)
{
    EXPECT_FALSE(callToken({49}, std::nullopt).has_value());
    EXPECT_THAT(steps, ElementsAre("call with old", "asked"));
    EXPECT_FALSE(tokenState().pinCache.validated());
}

TEST_F(ExpiredSession, OtherResultsAskNobody)
{
    for (const int answer : {0, 48, 50, -49}) {
        steps.clear();
        const auto outcome = callToken({answer}, makePin("new"));
        ASSERT_TRUE(outcome.has_value());
        EXPECT_EQ(outcome->has_value(), answer == 0);
        EXPECT_THAT(steps, ElementsAre("call with old"));
    }
    EXPECT_STREQ(tokenState().pinCache.pin()->c_str(), "old");
    expectLog({});
}

} // namespace quelta::test
