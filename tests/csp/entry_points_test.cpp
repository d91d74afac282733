#include "support/machine_registry.h"

#include "csp/context.h"
#include "csp/csp_test.h"

#include <stdexcept>

namespace quelta::test {

namespace {

enum class Takes { contextOnly, key, hash };

struct EntryPoint {
    const char* name;
    BOOL (*call)(HCRYPTPROV prov, ULONG_PTR object);
    Takes takes;
    // What is answered to no context, to one that was never made ready, and to no key or hash.
    DWORD noContext;
    DWORD deadContext;
    DWORD noObject = 0;
    // What is logged of the context, after the name.
    std::vector<LogLine> lines = {};
};

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

const EntryPoint entryPoints[] = {
    {"CPReleaseContext", [](auto prov, auto) { return CPReleaseContext(prov, 0); }, Takes::contextOnly, badUid, badUid},
    {"CPGetProvParam",
     [](auto prov, auto) { return CPGetProvParam(prov, PP_VERSION, bytes, sizeOfAll(), 0); },
     Takes::contextOnly,
     badUid,
     badUid,
     0,
     {debug("CPGetProvParam not initialised")}},
    {"CPSetProvParam", [](auto prov, auto) { return CPSetProvParam(prov, PP_SIGNATURE_PIN, bytes, 0); }, Takes::contextOnly,
     badUid, badUid},
    {"CPGenKey",
     [](auto prov, auto) { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); },
     Takes::contextOnly,
     badUid,
     badUid,
     0,
     {debug("Invalid CSP context")}},
    {"CPGetUserKey", [](auto prov, auto) { return CPGetUserKey(prov, AT_SIGNATURE, &out); }, Takes::contextOnly, badKey, badUid},
    {"CPGetKeyParam", [](auto prov, auto key) { return CPGetKeyParam(prov, key, KP_ALGID, bytes, sizeOfAll(), 0); }, Takes::key,
     badUid, badUid, badKey},
    {"CPSetKeyParam", [](auto prov, auto key) { return CPSetKeyParam(prov, key, KP_IV, bytes, 0); }, Takes::key, badUid, badUid,
     badKey},
    {"CPDestroyKey", [](auto prov, auto key) { return CPDestroyKey(prov, key); }, Takes::key, badUid, badUid, badKey},
    {"CPImportKey",
     [](auto prov, auto) { return CPImportKey(prov, plainKey, 64, 0, 0, &out); },
     Takes::contextOnly,
     badUid,
     badUid,
     0,
     {debug("Input length : 64"), debug("Input flag : 0"), error("CPImportKey - Contest null or not initialised")}},
    {"CPExportKey",
     [](auto prov, auto key) { return CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, bytes, sizeOfAll()); },
     Takes::key,
     badUid,
     badUid,
     badParameter,
     {debug("dwBlobType : 6"), debug("dwFlags : 0")}},
    {"CPCreateHash", [](auto prov, auto) { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }, Takes::contextOnly, badParameter,
     badUid},
    {"CPHashData", [](auto prov, auto hash) { return CPHashData(prov, hash, bytes, 64, 0); }, Takes::hash, badUid, badUid,
     badHash},
    {"CPGetHashParam", [](auto prov, auto hash) { return CPGetHashParam(prov, hash, HP_HASHVAL, bytes, sizeOfAll(), 0); },
     Takes::hash, badParameter, badHash, badParameter},
    {"CPSetHashParam", [](auto prov, auto hash) { return CPSetHashParam(prov, hash, HP_HASHVAL, bytes, 0); }, Takes::hash,
     badParameter, badHash, badParameter},
    {"CPDuplicateHash", [](auto prov, auto hash) { return CPDuplicateHash(prov, hash, nullptr, 0, &out); }, Takes::hash,
     badParameter, badUid, badParameter},
    {"CPDestroyHash", [](auto prov, auto hash) { return CPDestroyHash(prov, hash); }, Takes::hash, badUid, badUid, badHash},
    {"CPSignHash", [](auto prov, auto hash) { return CPSignHash(prov, hash, 2, nullptr, 0, bytes, sizeOfAll()); }, Takes::hash,
     badUid, badUid, badHash},
    {"CPVerifySignature",
     [](auto prov, auto hash) { return CPVerifySignature(prov, hash, bytes, 64, 0, nullptr, 0); },
     Takes::hash,
     badUid,
     badUid,
     badHash,
     {error("CSP Context Not Initialized")}},
    {"CPEncrypt", [](auto prov, auto key) { return CPEncrypt(prov, key, 0, TRUE, 0, bytes, sizeOfAll(), 64); }, Takes::key,
     badUid, badUid, badKey},
    {"CPDecrypt", [](auto prov, auto key) { return CPDecrypt(prov, key, 0, TRUE, 0, bytes, sizeOfAll()); }, Takes::key, badUid,
     badUid, badKey},
    {"CPGenRandom", [](auto prov, auto) { return CPGenRandom(prov, 64, bytes); }, Takes::contextOnly, badUid, badUid},
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
    ULONG_PTR objectFor(const EntryPoint& entry) const
    {
        if (entry.takes == Takes::contextOnly) return 0;
        return entry.takes == Takes::key ? key : hash;
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
        std::vector<LogLine> expected = {debug(entry.name)};
        expected.insert(expected.end(), entry.lines.begin(), entry.lines.end());
        out = untouchedHandle;
        expectFails(entry.noContext, [&] { return entry.call(0, objectFor(entry)); });
        expectLog(expected);
        expectFails(entry.deadContext, [&] { return entry.call(unready, objectFor(entry)); });
        expectLog(expected);
        if (entry.takes != Takes::contextOnly) expectFails(entry.noObject, [&] { return entry.call(prov, 0); });
        EXPECT_EQ(out, std::string_view(entry.name) == "CPGenKey" ? 0 : untouchedHandle);
        log.forget();
    }
    expectFails(badKey, [&] { return CPGetUserKey(prov, AT_SIGNATURE, nullptr); });
    expectFails(ERROR_CALL_NOT_IMPLEMENTED, [&] { return CPHashSessionKey(prov, hash, key, 0); });
    expectFails(NTE_NOT_SUPPORTED, [&] { return CPDeriveKey(prov, CALG_AES_128, hash, 0, &out); });
    expectLog({debug("CPGetUserKey"), debug("CPHashSessionKey"), debug("CPDeriveKey")});
    EXPECT_THAT(token.takeCalls(), ::testing::IsEmpty());
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
        expectFails(NTE_FAIL, [&] { return entry->call(prov, objectFor(*entry)); });
        EXPECT_EQ(out, 0U);
        token.during(thrower, nullptr);
    }
    token.during(Call::getConnectedDeviceList, [] { throw 5; });
    expectFails(NTE_FAIL, [&] { return CPAcquireContext(&out, nullptr, 0, bytes); });
}

} // namespace quelta::test
