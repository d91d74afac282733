#include "csp/csp_test.h"

namespace quelta::test {

class Context : public CspTest {
protected:
    // A handle that comes of it is the test's to release.
    Called<BOOL> open(const char* container, DWORD flags)
    {
        handle = untouchedHandle;
        return callWithLastError([&] { return CPAcquireContext(&handle, container, flags, &table); });
    }
    static std::vector<Bytes> containersOf(HCRYPTPROV prov)
    {
        std::vector<Bytes> names;
        for (DWORD flag = CRYPT_FIRST;; flag = CRYPT_NEXT) {
            Handed name = handTo(
                room(33), [&](BYTE* data, DWORD* length) { return CPGetProvParam(prov, PP_ENUMCONTAINERS, data, length, flag); });
            if (!name.answer.result) return names;
            names.push_back(name.buffer);
        }
    }

    HCRYPTPROV handle = untouchedHandle;
    BYTE table = 0;
};

TEST_F(Context, RefusedOpeningGivesNoHandleAndIsTriedAgain)
{
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPAcquireContext(nullptr, nullptr, 0, &table); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPAcquireContext(&handle, nullptr, 0, nullptr); });
    EXPECT_THAT(token.takeCalls(), IsEmpty());

    token.willAnswer(Call::initDevice, -7);
    EXPECT_EQ(open(nullptr, 0), failedWith(NTE_PROVIDER_DLL_FAIL));
    EXPECT_EQ(handle, untouchedHandle);
    expectLine(error("Init device to get certificate details failed : -7"));
    token.unplug();
    EXPECT_EQ(open(nullptr, CRYPT_VERIFYCONTEXT), failedWith(NTE_TOKEN_KEYSET_STORAGE_FULL));
    EXPECT_EQ(handle, untouchedHandle);
    expectLine(error("Valid token not connected"));
    token.connect({FakeDeviceLibrary::deviceId});
    acquire();
}

TEST_F(Context, WhateverTheFlagsTheFirstTokenIsOpenedAndItsKeysListed)
{
    token.connect({"TOKEN-1", "TOKEN-2"});
    for (const DWORD flags :
         {DWORD{0}, DWORD{CRYPT_VERIFYCONTEXT}, DWORD{CRYPT_NEWKEYSET}, DWORD{CRYPT_DELETEKEYSET | CRYPT_SILENT}}) {
        tokenState().libraryInitialised = false;
        ASSERT_EQ(open("any name", flags), succeeded()) << flags;
        EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false)", "initDevice(TOKEN-1, false)",
                                                   "getKeyPairList(TOKEN-1)"));
        EXPECT_TRUE(CPReleaseContext(handle, 0));
    }
}

TEST_F(Context, ReleaseLooksAtItsFlagsFirstAndLeavesTheProcessItsToken)
{
    ASSERT_EQ(open(nullptr, 0), succeeded());
    cachePin();
    expectFails(NTE_BAD_FLAGS, [] { return CPReleaseContext(0, 1); });
    expectFails(NTE_BAD_FLAGS, [&] { return CPReleaseContext(handle, 1); });
    BYTE random = 0;
    expectSucceeds([&] { return CPGenRandom(handle, 1, &random); });
    expectSucceeds([&] { return CPReleaseContext(handle, 0); });
    EXPECT_EQ(cachedPin(), "1234");
    token.takeCalls();
    ASSERT_EQ(open(nullptr, 0), succeeded());
    EXPECT_THAT(token.takeCalls(), ElementsAre("getConnectedDeviceList(false)", "getKeyPairList(TOKEN-1)")) << "already open";
    EXPECT_TRUE(CPReleaseContext(handle, 0));
}

TEST_F(Context, ContainersAreThoseOfTheAcquisition)
{
    const Bytes old = bytesOfText(keyName(token.withKeyPair(usageSigning, algorithmRsa2048)));
    const HCRYPTPROV prov = acquire();
    const Bytes added = bytesOfText(keyName(token.withKeyPair(usageSigning, algorithmRsa2048)));
    EXPECT_THAT(containersOf(prov), ElementsAre(old));
    EXPECT_THAT(containersOf(acquire()), ElementsAre(old, added));
    token.keyPairs.clear();
    EXPECT_THAT(containersOf(prov), ElementsAre(old));
    EXPECT_THAT(containersOf(acquire()), IsEmpty());
}

} // namespace quelta::test
