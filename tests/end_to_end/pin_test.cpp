#include "end_to_end/token_test.h"

#include <gmock/gmock.h>

namespace quelta::test {

namespace {

constexpr auto failed = static_cast<DWORD>(NTE_FAIL);
constexpr const char locked[] = "User pin locked, re-initialise device";

} // namespace

// The real dialog over the real token. Both interfaces are open; a test signs through one of them, and then through the other.
class TokenPin : public EndToEndTest, public ::testing::WithParamInterface<bool> {
protected:
    DWORD signBy(bool keyStorage) const
    {
        if (!keyStorage) return csp.sign(CALG_SHA_256, counting(9)).empty() ? GetLastError() : 0;
        Bytes hash(32, 7), signature(256);
        DWORD size = 0;
        return static_cast<DWORD>(
            key.call(&Table::SignHash, nullptr, hash.data(), 32, signature.data(), 256, &size, NCRYPT_PAD_PKCS1_FLAG));
    }
    DWORD sign() const { return signBy(GetParam()); }
    DWORD signThroughTheOther() const { return signBy(!GetParam()); }
    void meets(const std::string& pin, const std::string& message)
    {
        user.entersPin(pin);
        user.acknowledges(message);
    }

    const CryptoApi csp{"rsa2048"};
    const StoredKey key = storage.openLabelled("rsa2048");
};

INSTANTIATE_TEST_SUITE_P(BothWays, TokenPin, ::testing::Bool(), [](const auto& row) { return row.param ? "ksp" : "csp"; });

TEST_P(TokenPin, LocksWithTheLastAttemptAndOnceRightIsKeptForBothInterfaces)
{
    meets("000000", "Invalid user pin. Remaining attempts(2)");
    meets("111111", "Invalid user pin. Remaining attempts(1)");
    meets("222222", locked);
    EXPECT_EQ(sign(), failed);
    meets(tokenPin, locked);
    EXPECT_EQ(sign(), failed);
    drive("pin unlock");
    meets("000000", "Invalid user pin. Remaining attempts(2)");
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
    EXPECT_EQ(sign(), failed);
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    // The PIN is in the cache now.
    drive("sso on");
    drive("sso expire");
    log.forget();
    user.entersPin(tokenPin);
    EXPECT_EQ(sign(), 0U);
    EXPECT_EQ(signThroughTheOther(), 0U);
    EXPECT_THAT(log.takeText(), ::testing::HasSubstr("SSO expired, re-prompting for PIN"));
}

} // namespace quelta::test
