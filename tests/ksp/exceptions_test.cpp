#include "ksp/ksp_test.h"

#include <new>
#include <stdexcept>

namespace quelta::test {

class KspExceptions : public KspTest {
protected:
    // One error line, the last of the call, with the name that the call logged first.
    void expectFailureLogged(const std::string& reason)
    {
        const auto lines = log.takeLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), error(lines.front().text + " failed" + reason));
        EXPECT_EQ(std::ranges::count(lines, "ERROR ::=>", &LogLine::tag), 1);
    }
};

TEST_F(KspExceptions, NoneOfTheLibraryReachesACaller)
{
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    const auto unfinished = created(L"RSA");
    token.withAesKey(encryptionAes128);
    NCRYPT_KEY_HANDLE handle = 7;
    GuardedBuffer buffer(128, 0);
    DWORD size = 77;
    const std::pair<Call, std::function<SECURITY_STATUS()>> rows[] = {
        {Call::getConnectedDeviceList, [&] { return ksp.OpenProvider(&handle, nullptr, 0); }},
        {Call::getKeyPairList, [&] { return ksp.OpenKey(provider, &handle, L"", 0, 0); }},
        {Call::generateKeyPair, [&] { return ksp.FinalizeKey(provider, unfinished, 0); }},
        {Call::deleteKeyPair, [&] { return ksp.DeleteKey(provider, key, 0); }},
        {Call::decrypt, [&] { return ksp.Decrypt(provider, key, buffer.data(), 1, nullptr, buffer.data(), 128, &size, 0); }},
        {Call::decryptAes, [&] { return import(L"OpaqueKeyBlob", Bytes(8), handle); }},
        {Call::signHash, [&] { return ksp.SignHash(provider, key, nullptr, buffer.data(), 1, buffer.data(), 128, &size, 0); }},
    };
    cachePin();
    log.forget();
    for (const auto& [call, slot] : rows) {
        token.during(call, [] { throw std::runtime_error("lost"); });
        EXPECT_EQ(slot(), NTE_INTERNAL_ERROR) << static_cast<int>(call);
        expectFailureLogged(": lost");
        token.during(call, [] { throw 5; });
        EXPECT_EQ(slot(), NTE_INTERNAL_ERROR) << static_cast<int>(call);
        expectFailureLogged(": unknown exception");
        token.during(call, [] { throw std::bad_alloc(); });
        EXPECT_EQ(slot(), NTE_NO_MEMORY) << static_cast<int>(call);
        expectFailureLogged(": out of memory");
        token.during(call, nullptr);
    }
    EXPECT_EQ(handle, 7u);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(dwordProperty(unfinished, L"Length"), 0u);
    EXPECT_EQ(kspKeyOf(key)->keyName, L"01010101010101010101010101010101");
}

TEST_F(KspExceptions, InterruptedEnumerationAndPromptLeaveNothing)
{
    void* state = nullptr;
    NCryptKeyName* name = nullptr;
    token.during(Call::getKeyPairList, [] { throw std::bad_alloc(); });
    EXPECT_EQ(ksp.EnumKeys(provider, nullptr, &name, &state, 0), NTE_NO_MEMORY);
    EXPECT_EQ(state, nullptr);
    token.during(Call::getTokenInfo, [] { throw std::runtime_error("lost"); });
    EXPECT_EQ(ksp.PromptUser(provider, 0, nullptr, 0), NTE_INTERNAL_ERROR);
    EXPECT_FALSE(tokenState().pinCache.validated());
}

} // namespace quelta::test
