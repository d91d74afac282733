#include "ksp/ksp_test.h"

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KspProviderHandle : public KspTest {
protected:
    KspProvider& record() { return *providerOf(provider); }
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
    const LogLine running = debug("Monitor thread already running, not starting again.");
    expectLog({debug("KSPOpenProvider"), running, error("KSP: No valid token connected"), debug("KSPOpenProvider"),
               debug("KSP: Library not initialised, initialising"), running, error("KSP: Init device failed: -21")});
    EXPECT_FALSE(tokenState().libraryInitialised);

    EXPECT_EQ(ksp.OpenProvider(&handle, nullptr, 0), 0);
    EXPECT_EQ(providerOf(handle)->deviceId, "TOKEN-2");
    EXPECT_EQ(ksp.FreeProvider(handle), 0);
}

TEST_F(KspProviderHandle, PropertiesFollowOneBufferRule)
{
    const struct {
        LPCWSTR name;
        Bytes value;
    } rows[] = {
        {L"Name", wideBytes(L"Quelta Cryptographic Provider CSP")},
        {L"Impl Type", littleEndian({9})},
        {L"Version", littleEndian({0x100})},
        {L"Algorithm Name", wideBytes(L"RSA")},
        {L"Max Name Length", littleEndian({256})},
        {L"Security Descr Support", littleEndian({0})},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(row.name)));
        expectGives(row.value, [&](PBYTE output, DWORD room, DWORD* result) {
            return ksp.GetProviderProperty(provider, row.name, output, room, result, 0);
        });
    }
}

TEST_F(KspProviderHandle, OnlyWholeNamesAreProperties)
{
    DWORD size = 77;
    for (const LPCWSTR name : {L"name", L"Name ", L"Nam", L"", L"Use Count"}) {
        EXPECT_EQ(ksp.GetProviderProperty(provider, name, nullptr, 0, &size, 0), NTE_NOT_SUPPORTED);
    }
    EXPECT_EQ(size, 77u);
    const LogLine unknown = debug("KSP: Unsupported provider property");
    const LogLine slot = debug("KSPGetProviderProperty");
    expectLog({slot, unknown, slot, unknown, slot, unknown, slot, unknown, slot});
    EXPECT_EQ(ksp.GetProviderProperty(provider, nullptr, nullptr, 0, &size, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.GetProviderProperty(provider, L"Name", nullptr, 0, nullptr, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.SetProviderProperty(provider, nullptr, nullptr, 0, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(set(L"smartcardpin", {'1', 0}), NTE_NOT_SUPPORTED);
}

TEST_F(KspProviderHandle, WindowTooShortToBeOneClearsIt)
{
    const Bytes window = counting(12);
    for (const std::size_t shortSize : {0, 4, 7}) {
        EXPECT_EQ(set(L"HWND Handle", window), 0);
        EXPECT_EQ(record().hwnd, 0x0807060504030201u);
        EXPECT_EQ(set(L"HWND Handle", Bytes(shortSize, 1)), 0);
        EXPECT_EQ(record().hwnd, 0u) << shortSize;
    }
    EXPECT_EQ(set(L"HWND Handle", window), 0);
    EXPECT_EQ(ksp.SetProviderProperty(provider, L"HWND Handle", nullptr, 8, 0), 0);
    EXPECT_EQ(record().hwnd, 0u);
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
    knowPin();
    for (const bool ofKey : {false, true}) {
        EXPECT_EQ(ofKey ? setProperty(key, L"SmartCardPin", {'9', 0}) : set(L"SmartCardPin", {'9', 0}), NTE_VALIDATION_FAILED);
        EXPECT_STREQ(tokenState().pinCache.pin()->c_str(), "1234");
    }
    expectLog({debug("KSPSetProviderProperty"), debug("KSP: Setting PIN via property"), error("KSP: PIN validation failed: 5"),
               debug("KSPSetKeyProperty"), error("KSP: PIN validation failed: 5")});
    EXPECT_EQ(ksp.SetProviderProperty(provider, L"SmartCardPin", nullptr, 8, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ksp.SetKeyProperty(provider, key, L"SmartCardPin", nullptr, 8, 0), NTE_INVALID_PARAMETER);
}

TEST_F(KspProviderHandle, PromptAsksOnlyWhereThePinIsUnknown)
{
    user.cancels();
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), NTE_FAIL);
    user.entersPin("1234");
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), 0);
    token.takeCalls();
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), 0);
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

} // namespace quelta::test
