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

    // To prepare, silently.
    static void call(const char* name, const Function::Values& values)
    {
        const LONG result = functionNamed(name)(values);
        require(std::string_view(name).starts_with("KSP") ? result == 0 : result != FALSE, name);
    }
    static void drop(const char* name, const Function::Values& values) { functionNamed(name)(values); }
    static void forgetPin() { tokenState().pinCache.clear(); }
    static void forgetOpening() { tokenState().libraryInitialised = false; }

    const Bytes bytes = counting(256), pin = bytesOfText("1234");
    const ULONG_PTR input = addressOf(bytes.data()), pinPlace = addressOf(pin.data()), place = addressOf(&out),
                    data = addressOf(buffer.data()), result = addressOf(&length), room = addressOf(large.data()),
                    roomLength = addressOf(&largeLength);
};

TRANSCRIPT(FaultsTranscript, "the entry points of CryptoAPI")
{
    BYTE table = 0;
    ULONG_PTR prov = 0, key = 0, session = 0, finished = 0;
    const ULONG_PTR callbacks = addressOf(&table);
    const Bytes wrapped = keyBlob(SIMPLEBLOB, CALG_AES_256, Bytes(260));
    call("CPAcquireContext", {addressOf(&prov), addressOf(keyName(token.keyPairs[0]).c_str()), 0, callbacks});
    call("CPGetUserKey", {prov, AT_SIGNATURE, addressOf(&key)});
    call("CPImportKey", {prov, addressOf(wrapped.data()), wrapped.size(), key, 0, addressOf(&session)});
    call("CPCreateHash", {prov, CALG_SHA_256, 0, 0, addressOf(&finished)});
    call("CPSetHashParam", {prov, finished, HP_HASHVAL, input});
    records = {bytesOf(*keyOf(key)), bytesOf(*keyOf(session))};

    const Step newHash = [&] { call("CPCreateHash", {prov, CALG_SHA_256, 0, 0, addressOf(&made)}); };
    const Step newHashToSign = [&] { newHash(), forgetPin(); };
    const Step dropHash = [&] { drop("CPDestroyHash", {prov, made}); }, nothing = [] {};
    const auto expectImport = [&](const std::string& name, BYTE type, ALG_ID algorithm, const Bytes& rest) {
        const Bytes blob = keyBlob(type, algorithm, rest);
        expect({"CPImportKey " + name, {prov, addressOf(blob.data()), blob.size(), key, 0, place}});
    };

    expect({"CPAcquireContext", {place, addressOf("a container with a long name"), 0, callbacks}, forgetOpening});
    expect({"CPGetProvParam PP_KEYSPEC", {prov, PP_KEYSPEC, room, roomLength}});
    expect({"CPGetProvParam PP_CERTCHAIN", {prov, PP_CERTCHAIN, room, roomLength}});
    expect({"CPSetProvParam", {prov, PP_SIGNATURE_PIN, pinPlace}});
    expect({"CPGenKey", {prov, CALG_RSA_SIGN, 0, place}, forgetPin, nothing, 0, 0, 0, ERROR_NOT_ENOUGH_MEMORY});
    expect({"CPGetUserKey", {prov, AT_SIGNATURE, place}});
    expect({"CPGetKeyParam KP_CERTIFICATE", {prov, key, KP_CERTIFICATE, room, roomLength}});
    expect({"CPSetKeyParam KP_IV", {prov, session, KP_IV, input}});
    expectImport("PUBLICKEYBLOB", PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, 1024}), Bytes(132, 1)}));
    expectImport("PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(36));
    expectImport("SYMMETRICWRAPKEYBLOB", SYMMETRICWRAPKEYBLOB, CALG_AES_128, Bytes(264));
    expectImport("SIMPLEBLOB", SIMPLEBLOB, CALG_AES_256, Bytes(260));
    expect({"CPExportKey", {prov, key, 0, PUBLICKEYBLOB, 0, room, roomLength}});
    expect({"CPCreateHash", {prov, CALG_SHA1, 0, 0, place}, nothing, nothing, 0, 1});
    expect({"CPHashData", {prov, whatIsMade, input, 9}, newHash, dropHash, 0, 1});
    expect({"CPGetHashParam", {prov, whatIsMade, HP_HASHVAL, data, result}, newHash, dropHash});
    expect({"CPSetHashParam", {prov, whatIsMade, HP_HMAC_INFO, input}, newHash, dropHash, 0, 2});
    expect({"CPDuplicateHash", {prov, finished, 0, 0, place}, nothing, nothing, 0, 1});
    expect({"CPDestroyHash", {prov, whatIsMade}, newHash, nothing, 0, 1});
    expect({"CPSignHash", {prov, whatIsMade, AT_SIGNATURE, 0, 0, data, result}, newHashToSign, dropHash});
    const DWORD badHash = static_cast<DWORD>(NTE_BAD_HASH);
    expect({"CPVerifySignature", {prov, whatIsMade, input, 32}, newHash, dropHash, 0, 0, untouched, badHash});
    expect({"CPEncrypt", {prov, key, 0, TRUE, 0, data, result, buffer.size()}, forgetPin});
    expect({"CPDecrypt", {prov, key, 0, TRUE, 0, data, result}, forgetPin});
    expect({"CPDecrypt symmetric", {prov, session, 0, TRUE, 0, data, result}, forgetPin});
    expect({"CPGenRandom", {prov, buffer.size(), data}});
    EXPECT_EQ(names.size(), 20U) << "all but the two that only free what others make, and the two that never succeed";

    for (const ULONG_PTR opened : {key, session}) drop("CPDestroyKey", {prov, opened});
    drop("CPDestroyHash", {prov, finished});
    drop("CPReleaseContext", {prov});
}

TRANSCRIPT(FaultsTranscript, "the slots of key storage")
{
    ULONG_PTR provider = 0, key = 0, bare = 0, unfinished = 0, session = 0;
    void* state = nullptr;
    const std::wstring name = wideKeyName(token.keyPairs[0]);
    call("KSPOpenProvider", {addressOf(&provider)});
    for (ULONG_PTR* opened : {&key, &bare}) call("KSPOpenKey", {provider, addressOf(opened), addressOf(name.c_str())});
    call("KSPImportKey", {provider, key, addressOf(L"OpaqueTransport"), 0, addressOf(&session), input, 256});
    call("KSPCreatePersistedKey", {provider, addressOf(&unfinished), addressOf(L"RSA")});
    kspKeyOf(bare)->label = {};
    kspKeyOf(bare)->objectId.assign(Bytes{9});
    for (const ULONG_PTR opened : {key, unfinished, session})
        records.push_back({reinterpret_cast<const unsigned char*>(opened), sizeof(KspKey)});

    const Step nothing = [] {};
    const Step forgetPublicKey = [&] { kspKeyOf(bare)->publicKey = {}; };
    const Step forgetFinalizing = [&] { kspKeyOf(unfinished)->finalized = false, forgetPin(); };
    const auto free = [](ULONG_PTR block) { drop("KSPFreeBuffer", {block}); };
    const auto expectImport = [&](LPCWSTR type, const Bytes& blob) {
        expect({"KSPImportKey " + toUtf8(type), {provider, key, addressOf(type), 0, place, addressOf(blob.data()), blob.size()}});
    };
    const auto expectProperty = [&](const char* row, ULONG_PTR object) {
        expect({row, {provider, object, addressOf(L"SmartCardKeyCertificate"), room, large.size(), roomLength}});
    };
    const auto expectSetting = [&](LPCWSTR what, ULONG_PTR value, std::size_t size) {
        expect({"KSPSetKeyProperty " + toUtf8(what), {provider, key, addressOf(what), value, size}, forgetPin});
    };
    const auto expectExport = [&](const char* row, ULONG_PTR object, LPCWSTR type, const Step& prepare) {
        expect({row, {provider, object, 0, addressOf(type), 0, room, large.size(), roomLength}, prepare});
    };

    expect({"KSPOpenProvider", {place}, forgetOpening});
    expect({"KSPOpenKey", {provider, place, addressOf(name.c_str())}});
    expect({"KSPCreatePersistedKey", {provider, place, addressOf(L"RSA"), addressOf(L"a long name")}});
    expect({"KSPGetProviderProperty", {provider, addressOf(L"Name"), data, 256, result}});
    expectProperty("KSPGetKeyProperty", key);
    expectProperty("KSPGetKeyProperty by public key", bare);
    expect({"KSPSetProviderProperty", {provider, addressOf(L"SmartCardPin"), pinPlace, pin.size()}});
    expectSetting(L"SmartCardPin", pinPlace, pin.size());
    expectSetting(L"SmartCardKeyCertificate", input, bytes.size());
    expectSetting(L"IV", input, 16);
    expectExport("KSPExportKey", key, L"PUBLICBLOB", nothing);
    expectExport("KSPExportKey again from the token", bare, L"CAPIPUBLICBLOB", forgetPublicKey);
    expect({"KSPFinalizeKey", {provider, unfinished}, forgetFinalizing});
    expect({"KSPDeleteKey", {provider, key}, forgetPin});
    expect({"KSPEncrypt", {provider, key, input, 99, 0, data, 256, result}, forgetPin});
    expect({"KSPDecrypt", {provider, key, input, 256, 0, data, 256, result}, forgetPin});
    expect({"KSPDecrypt symmetric", {provider, session, input, 256, 0, data, 256, result}, forgetPin});
    expect({"KSPIsAlgSupported", {provider, addressOf(L"SHA1")}});
    // The texts of what these give out stay, and the list within the state.
    expect({"KSPEnumAlgorithms", {provider, 0, result, place}, nothing, [&] { free(out); }, 4});
    const Step endEnumeration = [&] {
        if (out != untouched) {
            EXPECT_EQ(reinterpret_cast<const NCryptKeyName*>(out)->pszName, name) << "a key was skipped";
            free(out);
        }
        free(addressOf(std::exchange(state, nullptr)));
    };
    expect({"KSPEnumKeys", {provider, 0, place, addressOf(&state)}, nothing, endEnumeration, 3});
    expectImport(L"RSAPUBLICBLOB", concat({littleEndian({0x31415352, 1024, 3, 128, 0, 0}), Bytes(131, 1)}));
    expectImport(L"CAPIPUBLICBLOB", concat({Bytes(8), littleEndian({0x31415352, 1024, 3}), Bytes(128, 1)}));
    expectImport(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 32}), Bytes(32)}));
    expectImport(L"OpaqueKeyBlob", bytes);
    expectImport(L"OpaqueTransport", bytes);
    expect({"KSPSignHash", {provider, key, 0, input, 32, data, 256, result}, forgetPin});
    expect({"KSPVerifySignature", {provider, key, 0, input, 32, data, 256}});
    expect({"KSPPromptUser", {provider}, forgetPin});
    for (const Function& slot : kspSlots()) {
        const bool frees = slot.name.starts_with("KSPFree");
        EXPECT_TRUE(frees || names.contains(slot.name) || slot({}) == NTE_NOT_SUPPORTED) << slot.name;
    }

    for (const ULONG_PTR opened : {key, bare, unfinished, session}) drop("KSPFreeKey", {provider, opened});
    drop("KSPFreeProvider", {provider});
}

TEST_F(FaultsTranscript, InputThatIsRefusedIsNotCopied)
{
    constexpr DWORD most = 1 << 20;
    ULONG_PTR prov = 0, provider = 0, key = 0;
    BYTE table = 0;
    call("CPAcquireContext", {addressOf(&prov), addressOf(""), 0, addressOf(&table)});
    call("KSPOpenProvider", {addressOf(&provider)});
    call("KSPCreatePersistedKey", {provider, addressOf(&key), addressOf(L"RSA")});
    const Bytes blob = keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, most * 8, 3}), Bytes(most, 'C')}));
    const ULONG_PTR longBlob = addressOf(blob.data());
    heap().largest = 0;
    EXPECT_EQ(functionNamed("CPImportKey")({prov, longBlob, blob.size(), 0, 0, place}), FALSE);
    const auto importKey = functionNamed("KSPImportKey"), setProperty = functionNamed("KSPSetKeyProperty");
    EXPECT_EQ(importKey({provider, 0, addressOf(L"CAPIPUBLICBLOB"), 0, place, longBlob, blob.size()}), NTE_BAD_DATA);
    EXPECT_EQ(setProperty({provider, key, addressOf(L"ChainingMode"), longBlob + 21, most - 1}), NTE_NOT_SUPPORTED);
    EXPECT_LT(heap().largest, most);
    drop("KSPFreeKey", {provider, key});
    drop("KSPFreeProvider", {provider});
    drop("CPReleaseContext", {prov});
}

} // namespace quelta::test
