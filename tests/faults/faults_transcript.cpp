#include "faults/fault_matrix.h"

#include "common/text.h"
#include "csp/csp_scenario.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "ksp/key.h"
#include "ksp/ksp_calls.h"
#include "support/heap.h"

namespace quelta::test {

// Everything is open, and the token holds one of each.
class FaultsTranscript : public FaultMatrix {
protected:
    FaultsTranscript()
    {
        constexpr std::string_view label = "a label that needs memory of its own";
        auto& pair = token.withKeyPair(usageBoth, algorithmRsa2048);
        setText(pair.label, label);
        token.withCertificateOf(pair, unsignedCertificate("leaf", "root"));
        token.withCertificate(unsignedCertificate("root", "root"));
        std::ranges::copy(secret, token.withAesKey(encryptionAes128).keyValue);
        token.onImportAesKey = [=](QueltaSymmetricKey& stored) { setText(stored.label, label); };
        token.onGenerate = [=](QueltaKeyPair& generated) { setText(generated.label, label); };
    }

    ULONG_PTR made = 0;
    GuardedBuffer large{4096};
};

TRANSCRIPT(FaultsTranscript, "the entry points of CryptoAPI")
{
    BYTE table = 0;
    HCRYPTPROV prov = 0;
    HCRYPTKEY key = 0, session = 0;
    HCRYPTHASH hash = 0, finished = 0;
    const Bytes bytes = counting(40), pin = bytesOfText("1234"), wrapped = keyBlob(SIMPLEBLOB, CALG_AES_256, Bytes(260));
    require(CPAcquireContext(&prov, keyName(token.keyPairs[0]).c_str(), 0, &table), "CPAcquireContext");
    require(CPGetUserKey(prov, AT_SIGNATURE, &key), "CPGetUserKey");
    require(CPImportKey(prov, wrapped.data(), static_cast<DWORD>(wrapped.size()), key, 0, &session), "CPImportKey");
    require(CPCreateHash(prov, CALG_SHA_256, 0, 0, &finished), "CPCreateHash");
    require(CPSetHashParam(prov, finished, HP_HASHVAL, bytes.data(), 0), "CPSetHashParam");
    records = {bytesOf(*keyOf(key)), bytesOf(*keyOf(session))};

    BYTE* const data = buffer.data();
    const Step destroyKey = [&] { CPDestroyKey(prov, out); }, destroyHash = [&] { CPDestroyHash(prov, out); };
    const Step newHash = [&] { require(CPCreateHash(prov, CALG_SHA_256, 0, 0, &hash), "CPCreateHash"); };
    const Step dropHash = [&] { CPDestroyHash(prov, hash); }, nothing = [] {};
    const Step forgetPin = [] { tokenState().pinCache.clear(); }, forgetOpening = [] { tokenState().libraryInitialised = false; };
    const Step newHashToSign = [&] { newHash(), forgetPin(); };
    const auto getParam = [&](DWORD parameter) {
        return csp([=, this, &prov] { return CPGetProvParam(prov, parameter, large.data(), &(length = large.length()), 0); });
    };
    const auto expectImport = [&](const char* name, BYTE type, ALG_ID algorithm, const Bytes& rest) {
        expect({std::string("CPImportKey ") + name, csp([&, blob = keyBlob(type, algorithm, rest)] {
                    return CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), key, 0, &out);
                }),
                destroyKey});
    };

    const auto acquire = csp([&] { return CPAcquireContext(&out, "a container with a long name", 0, &table); });
    expect({"CPAcquireContext", acquire, [&] { CPReleaseContext(out, 0); }, forgetOpening});
    expect({"CPReleaseContext", csp([&] { return CPReleaseContext(made, 0); }), nothing,
            [&] { CPAcquireContext(&made, "", 0, &table); }});
    expect({"CPGetProvParam PP_KEYSPEC", getParam(PP_KEYSPEC)});
    expect({"CPGetProvParam PP_CERTCHAIN", getParam(PP_CERTCHAIN)});
    expect({"CPSetProvParam", csp([&] { return CPSetProvParam(prov, PP_SIGNATURE_PIN, pin.data(), 0); })});
    for (const bool signedOn : {false, true}) {
        expect({signedOn ? "CPGenKey signed on" : "CPGenKey", csp([&] { return CPGenKey(prov, CALG_RSA_SIGN, 0, &out); }),
                destroyKey, signedOn ? forgetPin : nothing, 0, 0, 0, ERROR_NOT_ENOUGH_MEMORY});
    }
    expect({"CPGetUserKey", csp([&] { return CPGetUserKey(prov, AT_SIGNATURE, &out); }), destroyKey});
    expect({"CPGetKeyParam KP_CERTIFICATE",
            csp([&] { return CPGetKeyParam(prov, key, KP_CERTIFICATE, large.data(), &(length = large.length()), 0); })});
    expect({"CPSetKeyParam KP_IV", csp([&] { return CPSetKeyParam(prov, session, KP_IV, bytes.data(), 0); })});
    expect({"CPDestroyKey", csp([&] { return CPDestroyKey(prov, made); }), nothing,
            [&] { CPGetUserKey(prov, AT_SIGNATURE, &made); }});
    expectImport("PUBLICKEYBLOB", PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, 1024}), Bytes(132, 1)}));
    expectImport("PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(36));
    expectImport("SYMMETRICWRAPKEYBLOB", SYMMETRICWRAPKEYBLOB, CALG_AES_128, Bytes(264));
    expectImport("SIMPLEBLOB", SIMPLEBLOB, CALG_AES_256, Bytes(260));
    expect({"CPExportKey", csp([&] {
                const BOOL exported = CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, large.data(), &(length = large.length()));
                if (exported && GetLastError() == ERROR_SUCCESS) SetLastError(sentinelError);
                return exported;
            })});
    expect({"CPCreateHash", csp([&] { return CPCreateHash(prov, CALG_SHA1, 0, 0, &out); }), destroyHash, nothing, 0, 1});
    expect({"CPHashData", csp([&] { return CPHashData(prov, hash, bytes.data(), 9, 0); }), dropHash, newHash, 0, 1});
    expect({"CPGetHashParam", csp([&] { return CPGetHashParam(prov, hash, HP_HASHVAL, data, &length, 0); }), dropHash, newHash});
    expect({"CPSetHashParam", csp([&] { return CPSetHashParam(prov, hash, HP_HMAC_INFO, bytes.data(), 0); }), dropHash, newHash,
            0, 2});
    expect(
        {"CPDuplicateHash", csp([&] { return CPDuplicateHash(prov, finished, nullptr, 0, &out); }), destroyHash, nothing, 0, 1});
    expect({"CPDestroyHash", csp([&] { return CPDestroyHash(prov, hash); }), nothing, newHash, 0, 1});
    expect({"CPSignHash", csp([&] { return CPSignHash(prov, hash, AT_SIGNATURE, nullptr, 0, data, &length); }), dropHash,
            newHashToSign});
    const auto verify = csp([&] { return CPVerifySignature(prov, hash, bytes.data(), 32, 0, nullptr, 0); });
    expect({"CPVerifySignature", verify, dropHash, newHash, 0, 0, untouched, static_cast<DWORD>(NTE_BAD_HASH)});
    expect({"CPEncrypt", csp([&] { return CPEncrypt(prov, key, 0, TRUE, 0, data, &(length = 9), buffer.length()); }), nothing,
            forgetPin});
    expect({"CPDecrypt", csp([&] { return CPDecrypt(prov, key, 0, TRUE, 0, data, &length); }), nothing, forgetPin});
    expect({"CPDecrypt symmetric", csp([&] { return CPDecrypt(prov, session, 0, TRUE, 0, data, &length); }), nothing, forgetPin});
    expect({"CPGenRandom", csp([&] { return CPGenRandom(prov, buffer.length(), data); })});
    EXPECT_EQ(names.size(), 22U) << "all but the two that never succeed";

    for (const HCRYPTKEY opened : {key, session}) CPDestroyKey(prov, opened);
    CPDestroyHash(prov, finished);
    CPReleaseContext(prov, 0);
}

TRANSCRIPT(FaultsTranscript, "the slots of key storage")
{
    ULONG_PTR provider = 0, key = 0, bare = 0, unfinished = 0, session = 0;
    void* state = nullptr;
    const std::wstring name = wideKeyName(token.keyPairs[0]);
    const Bytes pin = bytesOfText("1234"), bytes(256), iv(16);
    const ULONG_PTR place = addressOf(&out), data = addressOf(buffer.data()), result = addressOf(&length),
                    input = addressOf(bytes.data());
    const auto call = [](const char* slot, const Function::Values& values) { requireStatus(kspSlot(slot)(values), slot); };
    call("KSPOpenProvider", {addressOf(&provider)});
    for (ULONG_PTR* opened : {&key, &bare}) call("KSPOpenKey", {provider, addressOf(opened), addressOf(name.c_str())});
    call("KSPImportKey", {provider, key, addressOf(L"OpaqueTransport"), 0, addressOf(&session), input, 256});
    call("KSPCreatePersistedKey", {provider, addressOf(&unfinished), addressOf(L"RSA")});
    kspKeyOf(bare)->label = {};
    kspKeyOf(bare)->objectId.assign(Bytes{9});
    for (const ULONG_PTR opened : {key, unfinished, session})
        records.push_back({reinterpret_cast<const unsigned char*>(opened), sizeof(KspKey)});

    const auto expectSlot = [&](
                                const std::string& row, const Function::Values& values, const Step& undo = [] {},
                                const Step& prepare = [] {}, int keptBlocks = 0) {
        const auto function = kspSlot(row.substr(0, row.find(' '))).address;
        const auto invoke = [=] {
            const SECURITY_STATUS status = std::apply(function, values);
            return Outcome{status == 0, status == 0 ? sentinelError : static_cast<DWORD>(status)};
        };
        expect({row, invoke, undo, prepare, keptBlocks});
    };
    const Step freeKey = [&] { kspSlot("KSPFreeKey")({provider, out}); };
    const Step freeProvider = [&] { kspSlot("KSPFreeProvider")({out}); };
    const auto freeBuffer = [](ULONG_PTR block) { kspSlot("KSPFreeBuffer")({block}); };
    const auto expectFree = [&](const char* row, const Step& prepare) {
        const Function& slot = kspSlot(row);
        const auto free = [&] { return slot({slot.arguments == "pk" ? provider : made, made}); };
        expect({row, [=] { return Outcome{free() == 0, sentinelError}; }, [] {}, prepare});
    };
    const Step nothing = [] {}, forgetPin = [] { tokenState().pinCache.clear(); };
    const Step forgetOpening = [] { tokenState().libraryInitialised = false; };
    const auto expectImport = [&](LPCWSTR type, const Bytes& blob) {
        expectSlot("KSPImportKey " + toUtf8(type),
                   {provider, key, addressOf(type), 0, place, addressOf(blob.data()), blob.size()}, freeKey);
    };
    const auto property = [&](const char* row, ULONG_PTR object, LPCWSTR what) {
        expectSlot(row, {provider, object, addressOf(what), addressOf(large.data()), large.size(), result});
    };
    const auto setting = [&](LPCWSTR what, const Bytes& value) {
        expectSlot("KSPSetKeyProperty " + toUtf8(what), {provider, key, addressOf(what), addressOf(value.data()), value.size()},
                   nothing, forgetPin);
    };

    expectSlot("KSPOpenProvider", {place}, freeProvider, forgetOpening);
    expectSlot("KSPOpenKey", {provider, place, addressOf(name.c_str())}, freeKey);
    expectSlot("KSPCreatePersistedKey", {provider, place, addressOf(L"RSA"), addressOf(L"a long name")}, freeKey);
    expectSlot("KSPGetProviderProperty", {provider, addressOf(L"Name"), data, 256, result});
    property("KSPGetKeyProperty", key, L"SmartCardKeyCertificate");
    property("KSPGetKeyProperty by public key", bare, L"SmartCardKeyCertificate");
    expectSlot("KSPSetProviderProperty", {provider, addressOf(L"SmartCardPin"), addressOf(pin.data()), pin.size()});
    setting(L"SmartCardPin", pin);
    setting(L"SmartCardKeyCertificate", bytes);
    setting(L"IV", iv);
    expectSlot("KSPExportKey", {provider, key, 0, addressOf(L"PUBLICBLOB"), 0, addressOf(large.data()), large.size(), result});
    expectSlot("KSPExportKey again from the token",
               {provider, bare, 0, addressOf(L"CAPIPUBLICBLOB"), 0, addressOf(large.data()), large.size(), result}, nothing,
               [&] { kspKeyOf(bare)->publicKey = {}; });
    expectSlot("KSPFinalizeKey", {provider, unfinished}, nothing, [&] { kspKeyOf(unfinished)->finalized = false, forgetPin(); });
    expectSlot("KSPDeleteKey", {provider, key}, nothing, forgetPin);
    expectFree("KSPFreeProvider", [&] { call("KSPOpenProvider", {addressOf(&made)}); });
    expectFree("KSPFreeKey", [&] { call("KSPOpenKey", {provider, addressOf(&made), addressOf(name.c_str())}); });
    expectFree("KSPFreeBuffer", [&] { made = addressOf(std::calloc(1, 1)); });
    expectSlot("KSPEncrypt", {provider, key, input, 99, 0, data, 256, result}, nothing, forgetPin);
    expectSlot("KSPDecrypt", {provider, key, input, 256, 0, data, 256, result}, nothing, forgetPin);
    expectSlot("KSPDecrypt symmetric", {provider, session, input, 256, 0, data, 256, result}, nothing, forgetPin);
    expectSlot("KSPIsAlgSupported", {provider, addressOf(L"SHA1")});
    // The texts of what these give out stay, and the list within the state.
    expectSlot(
        "KSPEnumAlgorithms", {provider, 0, result, place}, [&] { freeBuffer(out); }, nothing, 4);
    const auto endEnumeration = [&] {
        if (out != untouched) {
            EXPECT_EQ(reinterpret_cast<const NCryptKeyName*>(out)->pszName, name) << "a key was skipped";
            freeBuffer(out);
        }
        freeBuffer(addressOf(std::exchange(state, nullptr)));
    };
    expectSlot("KSPEnumKeys", {provider, 0, place, addressOf(&state)}, endEnumeration, nothing, 3);
    expectImport(L"RSAPUBLICBLOB", concat({littleEndian({0x31415352, 1024, 3, 128, 0, 0}), Bytes(131, 1)}));
    expectImport(L"CAPIPUBLICBLOB", concat({Bytes(8), littleEndian({0x31415352, 1024, 3}), Bytes(128, 1)}));
    expectImport(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 32}), Bytes(32)}));
    expectImport(L"OpaqueKeyBlob", bytes);
    expectImport(L"OpaqueTransport", bytes);
    expectSlot("KSPSignHash", {provider, key, 0, input, 32, data, 256, result}, nothing, forgetPin);
    expectSlot("KSPVerifySignature", {provider, key, 0, input, 32, data, 256});
    expectSlot("KSPPromptUser", {provider}, nothing, forgetPin);
    expectSlot("KSPFreeSecret", {});
    for (const Function& slot : kspSlots()) EXPECT_TRUE(names.contains(slot.name) || slot({}) == NTE_NOT_SUPPORTED) << slot.name;

    for (const ULONG_PTR opened : {key, bare, unfinished, session}) call("KSPFreeKey", {provider, opened});
    call("KSPFreeProvider", {provider});
}

TEST_F(FaultsTranscript, InputThatIsRefusedIsNotCopied)
{
    constexpr DWORD most = 1 << 20;
    ULONG_PTR prov = 0, provider = 0, key = 0;
    BYTE table = 0;
    const auto call = [](const char* slot, const Function::Values& values) { return kspSlot(slot)(values); };
    require(CPAcquireContext(&prov, "", 0, &table), "CPAcquireContext");
    requireStatus(call("KSPOpenProvider", {addressOf(&provider)}), "KSPOpenProvider");
    requireStatus(call("KSPCreatePersistedKey", {provider, addressOf(&key), addressOf(L"RSA")}), "KSPCreatePersistedKey");
    const Bytes blob = keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, most * 8, 3}), Bytes(most, 'C')}));
    const ULONG_PTR bytes = addressOf(blob.data()), size = blob.size();
    heap().largest = 0;
    EXPECT_FALSE(CPImportKey(prov, blob.data(), static_cast<DWORD>(size), 0, 0, &out));
    EXPECT_EQ(call("KSPImportKey", {provider, 0, addressOf(L"CAPIPUBLICBLOB"), 0, addressOf(&out), bytes, size}), NTE_BAD_DATA);
    EXPECT_EQ(call("KSPSetKeyProperty", {provider, key, addressOf(L"ChainingMode"), bytes + 21, most - 1}), NTE_NOT_SUPPORTED);
    EXPECT_LT(heap().largest, most);
    call("KSPFreeKey", {provider, key});
    call("KSPFreeProvider", {provider});
    CPReleaseContext(prov, 0);
}

} // namespace quelta::test
