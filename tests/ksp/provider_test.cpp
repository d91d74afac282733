#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspProviderHandle : public KspTest {
protected:
    SECURITY_STATUS set(LPCWSTR name, const Bytes& value)
    {
        GuardedBuffer input(value);
        return ksp.SetProviderProperty(provider, name, input.data(), input.length(), 0);
    }
};

TEST_F(KspProviderHandle, FailedOpeningLeavesTheHandle)
{
    NCRYPT_PROV_HANDLE handle = 7;
    token.unplug();
    EXPECT_EQ(ksp.OpenProvider(&handle, nullptr, 0), NTE_DEVICE_NOT_FOUND);
    token.connect({"TOKEN-2", "TOKEN-1"});
    tokenState().libraryInitialised = false;
    token.willAnswer(Call::initDevice, -21);
    EXPECT_EQ(ksp.OpenProvider(&handle, nullptr, 0), NTE_PROVIDER_DLL_FAIL);
    EXPECT_EQ(handle, 7u);
    EXPECT_FALSE(tokenState().libraryInitialised);

    EXPECT_EQ(ksp.OpenProvider(&handle, nullptr, 0), 0);
    EXPECT_EQ(providerOf(handle)->deviceId, "TOKEN-2");
    EXPECT_EQ(ksp.FreeProvider(handle), 0);
}

TEST_F(KspProviderHandle, PropertiesFollowOneBufferRule)
{
    const std::pair<LPCWSTR, Bytes> rows[] = {{L"Name", wideBytes(L"Quelta Cryptographic Provider CSP")},
                                              {L"Impl Type", littleEndian({9})},
                                              {L"Version", littleEndian({0x100})}};
    for (const auto& row : rows) {
        expectGives(row.second, [&](PBYTE output, DWORD room, DWORD* result) {
            return ksp.GetProviderProperty(provider, row.first, output, room, result, 0);
        });
    }
}

TEST_F(KspProviderHandle, OnlyWholeNamesAreProperties)
{
    DWORD size = 77;
    for (const LPCWSTR name : {L"name", L"Name ", L"", L"Use Count"}) {
        EXPECT_EQ(ksp.GetProviderProperty(provider, name, nullptr, 0, &size, 0), NTE_NOT_SUPPORTED);
    }
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(ksp.GetProviderProperty(provider, nullptr, nullptr, 0, &size, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.GetProviderProperty(provider, L"Name", nullptr, 0, nullptr, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.SetProviderProperty(provider, nullptr, nullptr, 0, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(set(L"smartcardpin", {'1', 0}), NTE_NOT_SUPPORTED);
}

TEST_F(KspProviderHandle, WindowTooShortToBeOneClearsIt)
{
    GuardedBuffer tooShort(7, 1);
    for (const PBYTE input : {tooShort.data(), PBYTE{nullptr}}) {
        EXPECT_EQ(set(L"HWND Handle", counting(12)), 0);
        EXPECT_EQ(providerOf(provider)->hwnd, 0x0807060504030201u);
        EXPECT_EQ(ksp.SetProviderProperty(provider, L"HWND Handle", input, input ? 7 : 8, 0), 0);
        EXPECT_EQ(providerOf(provider)->hwnd, 0u);
    }
}

TEST_F(KspProviderHandle, WidePinReachesTheTokenAsItsFirstCharacter)
{
    token.pin = "1";
    EXPECT_EQ(set(L"SmartCardPin", wideBytes(L"1234")), 0);
    EXPECT_THAT(token.takeCalls(), ElementsAre("validatePassword(TOKEN-1, 1, 1, 0)"));
    EXPECT_STREQ(tokenState().pinCache.pin()->c_str(), "1");
}

TEST_F(KspProviderHandle, PinThatIsRefusedReplacesNone)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    cachePin();
    for (const bool ofKey : {false, true}) {
        EXPECT_EQ(ofKey ? setProperty(key, L"SmartCardPin", {'9', 0}) : set(L"SmartCardPin", {'9', 0}), NTE_VALIDATION_FAILED);
        EXPECT_STREQ(tokenState().pinCache.pin()->c_str(), "1234");
    }
    EXPECT_EQ(ksp.SetProviderProperty(provider, L"SmartCardPin", nullptr, 8, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"SmartCardPin", nullptr, 8, 0), NTE_INVALID_PARAMETER);
}

TEST_F(KspProviderHandle, PromptAsksOnlyWhereThePinIsUnknown)
{
    user.cancels();
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), NTE_FAIL);
    cachePin();
    token.takeCalls();
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), 0);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
