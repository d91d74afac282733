#include "support/machine_registry.h"

#include "csp/context.h"
#include "csp/csp_test.h"

#include <stdexcept>

namespace quelta::test {

namespace {

constexpr DWORD asDword(auto code)
{
    return static_cast<DWORD>(code);
}
constexpr DWORD badUid = asDword(NTE_BAD_UID);
constexpr DWORD badKey = asDword(NTE_BAD_KEY);
constexpr DWORD badHash = asDword(NTE_BAD_HASH);
constexpr DWORD badParameter = ERROR_INVALID_PARAMETER;

constexpr BYTE plainKey[64] = {PLAINTEXTKEYBLOB, 2, 0, 0, 0x0E, 0x66};
BYTE bytes[64] = {};
DWORD size = 0;
ULONG_PTR out = 0;

DWORD* sizeOfAll()
{
    size = sizeof bytes;
    return &size;
}

struct EntryPoint {
    const char* name;
    BOOL (*call)(HCRYPTPROV prov, HCRYPTKEY key, HCRYPTHASH hash);
    // What is answered to no key or hash where one is wanted, to no context, and to one that was never made ready.
    DWORD noObject = 0;
    DWORD noContext = badUid;
    DWORD deadContext = badUid;
};

const EntryPoint entryPoints[] = {
    {"CPReleaseContext", [](auto prov, auto, auto) { return CPReleaseContext(prov, 0); }},
    {"CPGetProvParam", [](auto prov, auto, auto) { return CPGetProvParam(prov, PP_VERSION, bytes, sizeOfAll(), 0); }},
    {"CPSetProvParam", [](auto prov, auto, auto) { return CPSetProvParam(prov, PP_SIGNATURE_PIN, bytes, 0); }},
    {"CPGenKey", [](auto prov, auto, auto) { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); }},
    {"CPGetUserKey", [](auto prov, auto, auto) { return CPGetUserKey(prov, AT_SIGNATURE, &out); }, 0, badKey},
    {"CPGetKeyParam", [](auto prov, auto key, auto) { return CPGetKeyParam(prov, key, KP_ALGID, bytes, sizeOfAll(), 0); },
     badKey},
    {"CPSetKeyParam", [](auto prov, auto key, auto) { return CPSetKeyParam(prov, key, KP_IV, bytes, 0); }, badKey},
    {"CPDestroyKey", [](auto prov, auto key, auto) { return CPDestroyKey(prov, key); }, badKey},
    {"CPImportKey", [](auto prov, auto, auto) { return CPImportKey(prov, plainKey, 64, 0, 0, &out); }},
    {"CPExportKey", [](auto prov, auto key, auto) { return CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, bytes, sizeOfAll()); },
     badParameter},
    {"CPCreateHash", [](auto prov, auto, auto) { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }, 0, badParameter},
    {"CPHashData", [](auto prov, auto, auto hash) { return CPHashData(prov, hash, bytes, 64, 0); }, badHash},
    {"CPGetHashParam", [](auto prov, auto, auto hash) { return CPGetHashParam(prov, hash, HP_HASHVAL, bytes, sizeOfAll(), 0); },
     badParameter, badParameter, badHash},
    {"CPSetHashParam", [](auto prov, auto, auto hash) { return CPSetHashParam(prov, hash, HP_HASHVAL, bytes, 0); }, badParameter,
     badParameter, badHash},
    {"CPDuplicateHash", [](auto prov, auto, auto hash) { return CPDuplicateHash(prov, hash, nullptr, 0, &out); }, badParameter,
     badParameter},
    {"CPDestroyHash", [](auto prov, auto, auto hash) { return CPDestroyHash(prov, hash); }, badHash},
    {"CPSignHash", [](auto prov, auto, auto hash) { return CPSignHash(prov, hash, 2, nullptr, 0, bytes, sizeOfAll()); }, badHash},
    {"CPVerifySignature", [](auto prov, auto, auto hash) { return CPVerifySignature(prov, hash, bytes, 64, 0, nullptr, 0); },
     badHash},
    {"CPEncrypt", [](auto prov, auto key, auto) { return CPEncrypt(prov, key, 0, TRUE, 0, bytes, sizeOfAll(), 64); }, badKey},
    {"CPDecrypt", [](auto prov, auto key, auto) { return CPDecrypt(prov, key, 0, TRUE, 0, bytes, sizeOfAll()); }, badKey},
    {"CPGenRandom", [](auto prov, auto, auto) { return CPGenRandom(prov, 64, bytes); }},
};

} // namespace

class EntryPoints : public CspTest {
protected:
    EntryPoints()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048);
        prov = acquire();
        key = userKey(prov);
        hash = newHash(prov);
        cachePin();
    }

    HCRYPTPROV prov = 0;
    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
};

TEST_F(EntryPoints, RefuseAMissingOrUnreadyContextOrObjectEachInItsWay)
{
    CspContext neverAcquired;
    neverAcquired.serialNumber = FakeDeviceLibrary::deviceId;
    const auto unready = reinterpret_cast<HCRYPTPROV>(&neverAcquired);
    for (const EntryPoint& entry : entryPoints) {
        SCOPED_TRACE(entry.name);
        out = untouchedHandle;
        expectFails(entry.noContext, [&] { return entry.call(0, key, hash); });
        expectLine(debug(entry.name));
        expectFails(entry.deadContext, [&] { return entry.call(unready, key, hash); });
        if (entry.noObject != 0) expectFails(entry.noObject, [&] { return entry.call(prov, 0, 0); });
        EXPECT_EQ(out, std::string_view(entry.name) == "CPGenKey" ? 0 : untouchedHandle);
        log.forget();
    }
    expectFails(badKey, [&] { return CPGetUserKey(prov, AT_SIGNATURE, nullptr); });
    expectFails(ERROR_CALL_NOT_IMPLEMENTED, [&] { return CPHashSessionKey(prov, hash, key, 0); });
    expectFails(NTE_NOT_SUPPORTED, [&] { return CPDeriveKey(prov, CALG_AES_128, hash, 0, &out); });
    expectLog({debug("CPGetUserKey"), debug("CPHashSessionKey"), debug("CPDeriveKey")});
    EXPECT_THAT(token.takeCalls(), IsEmpty());
}

TEST_F(EntryPoints, LastErrorOfTheCallerSurvivesSuccessAtEveryLogLevel)
{
    for (const Call call : {Call::signHash, Call::finalHash, Call::getKeyPairList, Call::validatePassword}) {
        token.during(call, [] { SetLastError(ERROR_DEVICE_NOT_CONNECTED); });
    }
    for (const DWORD level : {0, 2, 3}) {
        setLogLevel(level);
        tokenState().pinCache.clear();
        user.entersPin("1234");
        hash = newHash(prov);
        expectSucceeds([&] { return CPSignHash(prov, hash, 2, nullptr, 0, bytes, sizeOfAll()); });
    }
}

TEST_F(EntryPoints, LibraryThatThrowsIsAFailureThatHandsOutNothing)
{
    tokenState().pinCache.clear();
    token.openSingleSignOn();
    for (const auto& [name, thrower] : {std::pair{"CPGetUserKey", Call::getKeyPairList},
                                        {"CPGenKey", Call::generateKeyPair},
                                        {"CPGenKey", Call::getTokenInfo},
                                        {"CPCreateHash", Call::initHash},
                                        {"CPDuplicateHash", Call::initHash},
                                        {"CPHashData", Call::updateHash},
                                        {"CPGetHashParam", Call::finalHash},
                                        {"CPSignHash", Call::finalHash},
                                        {"CPImportKey", Call::importAesKey},
                                        {"CPExportKey", Call::getKeyPairList},
                                        {"CPDecrypt", Call::decrypt},
                                        {"CPGenRandom", Call::generateRamdomNumber}}) {
        const auto* entry = std::ranges::find(entryPoints, std::string_view(name), &EntryPoint::name);
        ASSERT_NE(entry, std::end(entryPoints));
        out = 0;
        token.during(thrower, [] { throw std::runtime_error("the library is in trouble"); });
        SCOPED_TRACE(name);
        expectFails(NTE_FAIL, [&] { return entry->call(prov, key, hash); });
        EXPECT_EQ(out, 0U);
        expectLine(error(std::string(name) + " failed: the library is in trouble"));
        token.during(thrower, nullptr);
    }
    token.during(Call::getConnectedDeviceList, [] { throw 5; });
    expectFails(NTE_FAIL, [&] { return CPAcquireContext(&out, nullptr, 0, bytes); });
    expectLine(error("CPAcquireContext failed: unknown exception"));
    token.during(Call::getConnectedDeviceList, [] { throw std::bad_alloc(); });
    expectFails(NTE_NO_MEMORY, [&] { return CPAcquireContext(&out, nullptr, 0, bytes); });
    expectLine(error("CPAcquireContext failed: out of memory"));
}

} // namespace quelta::test
