#include "ksp/ksp_test.h"

#include "csp/entry_points.h"

#include <array>

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Each of the two interfaces open in one process, with the same key.
class BothProviders : public KspTest {
protected:
    BothProviders() : key(opened(token.withKeyPair(usageBoth, algorithmRsa1024)))
    {
        std::array<void*, 16> noCallbacks{};
        EXPECT_TRUE(CPAcquireContext(&context, nullptr, 0, noCallbacks.data()));
        EXPECT_TRUE(CPGetUserKey(context, AT_KEYEXCHANGE, &userKey));
        opening = token.takeCalls();
        log.forget();
    }
    ~BothProviders() override
    {
        if (sessionKey) CPDestroyKey(context, sessionKey);
        CPDestroyKey(context, userKey);
        CPReleaseContext(context, 0);
    }

    SECURITY_STATUS signByKsp(DWORD flags = 0)
    {
        DWORD size = 0;
        return ksp.SignHash(provider, key, nullptr, digest.data(), 32, signature.data(), 128, &size, flags);
    }
    BOOL signByCsp()
    {
        HCRYPTHASH hash = 0;
        DWORD size = 128;
        EXPECT_TRUE(CPCreateHash(context, CALG_SHA_256, 0, 0, &hash));
        EXPECT_TRUE(CPSetHashParam(context, hash, HP_HASHVAL, digest.data(), 0));
        const BOOL done = CPSignHash(context, hash, AT_SIGNATURE, nullptr, 0, signature.data(), &size);
        CPDestroyHash(context, hash);
        return done;
    }
    std::vector<std::string> pinChecks()
    {
        auto calls = token.takeCalls();
        std::erase_if(calls, [](const std::string& call) { return !call.starts_with("validatePassword"); });
        return calls;
    }

    HCRYPTPROV context = 0;
    HCRYPTKEY userKey = 0;
    HCRYPTKEY sessionKey = 0;
    NCRYPT_KEY_HANDLE key;
    std::vector<std::string> opening;
    GuardedBuffer digest{counting(32)};
    GuardedBuffer signature{128};
    const std::string pinCheck = "validatePassword(TOKEN-1, 1234, 1, 0)";
};

TEST_F(BothProviders, TokenIsOpenedOnceForBoth)
{
    EXPECT_THAT(opening, testing::Not(testing::Contains(testing::StartsWith("init"))));
    EXPECT_THAT(opening, testing::Contains("getConnectedDeviceList(false)"));
}

TEST_F(BothProviders, PinTypedForOneSignsThroughTheOther)
{
    user.entersPin("1234");
    EXPECT_TRUE(signByCsp());
    EXPECT_EQ(signByKsp(NCRYPT_SILENT_FLAG), 0);
    EXPECT_THAT(pinChecks(), ElementsAre(pinCheck));

    tokenState().pinCache.clear();
    user.entersPin("1234");
    EXPECT_EQ(signByKsp(), 0);
    EXPECT_TRUE(signByCsp());
    EXPECT_THAT(pinChecks(), ElementsAre(pinCheck));
}

TEST_F(BothProviders, UnpluggedTokenIsAskedForItsPinAgainByBoth)
{
    knowPin();
    EXPECT_EQ(signByKsp(), 0);
    token.unplug();
    for (int polls = 0; polls < 2; ++polls) ASSERT_TRUE(token.waitForMonitorPoll());
    EXPECT_FALSE(tokenState().libraryInitialised);
    token.connect({FakeDeviceLibrary::deviceId});
    EXPECT_EQ(signByKsp(NCRYPT_SILENT_FLAG), NTE_SILENT_CONTEXT);
    user.cancels();
    EXPECT_EQ(signByKsp(), NTE_FAIL);
    user.cancels();
    EXPECT_FALSE(signByCsp());
    EXPECT_THAT(pinChecks(), IsEmpty());
}

TEST_F(BothProviders, VectorSetThroughOneDecryptsThroughTheOther)
{
    knowPin();
    const Bytes blob = joined({{SIMPLEBLOB, 2, 0, 0}, littleEndian({CALG_AES_256, CALG_RSA_KEYX}), Bytes(128)});
    token.plain.bytes = counting(32);
    ASSERT_TRUE(CPImportKey(context, blob.data(), static_cast<DWORD>(blob.size()), userKey, 0, &sessionKey));
    const auto kspKey = clearKey(counting(16));

    EXPECT_EQ(setProperty(kspKey, L"IV", counting(16, 0x20)), 0);
    forget();
    DWORD size = 32;
    Bytes data(32);
    EXPECT_TRUE(CPDecrypt(context, sessionKey, 0, TRUE, 0, data.data(), &size));
    EXPECT_THAT(token.takeCalls(), ElementsAre(testing::HasSubstr(", 202122232425262728292A2B2C2D2E2F, ")));

    EXPECT_TRUE(CPSetKeyParam(context, sessionKey, KP_IV, counting(16, 0x50).data(), 0));
    size = 0;
    EXPECT_EQ(ksp.Decrypt(provider, kspKey, data.data(), 32, nullptr, data.data(), 32, &size, 0), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre(testing::HasSubstr(", 505152535455565758595A5B5C5D5E5F, ")));
}

} // namespace quelta::test
