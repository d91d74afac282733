#include "ksp/ksp_test.h"

#include "csp/entry_points.h"

#include <array>

namespace quelta::test {

using ::testing::ElementsAre;

// Each of the two interfaces open in one process, with the same key.
class BothProviders : public KspTest {
protected:
    BothProviders()
    {
        token.withKeyPair(usageBoth, algorithmRsa1024);
        std::array<void*, 16> noCallbacks{};
        EXPECT_TRUE(CPAcquireContext(&context, nullptr, 0, noCallbacks.data()));
        EXPECT_TRUE(CPGetUserKey(context, AT_KEYEXCHANGE, &userKey));
        EXPECT_THAT(token.takeDeeds(), testing::IsEmpty()) << "the token is opened once for both";
    }
    ~BothProviders() override
    {
        if (sessionKey) CPDestroyKey(context, sessionKey);
        CPDestroyKey(context, userKey);
        CPReleaseContext(context, 0);
    }

    HCRYPTPROV context = 0;
    HCRYPTKEY userKey = 0;
    HCRYPTKEY sessionKey = 0;
};

TEST_F(BothProviders, VectorSetThroughOneDecryptsThroughTheOther)
{
    cachePin();
    const Bytes blob = concat({{SIMPLEBLOB, 2, 0, 0}, littleEndian({CALG_AES_256, CALG_RSA_KEYX}), Bytes(128)});
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
