#include "ksp/ksp_scenario.h"

#include "ksp/provider.h"
#include "token/handles.h"

namespace quelta::test {

class KspRefusalsTranscript : public KspScenario {
protected:
    // Returns arguments with which each slot succeeds.
    KspCalls::Rows rows()
    {
        const auto& pair = token.withKeyPair(usageBoth, algorithmRsa1024);
        token.withCertificateOf(pair, counting(9));
        const auto key = opened(pair);
        const Bytes blob = concat({littleEndian({0x4D42444B, 1, 16}), counting(16)});
        cachePin();
        return {{"KSPOpenProvider", {L"a name"}},
                {"KSPOpenKey", {L"01010101010101010101010101010101"}},
                {"KSPCreatePersistedKey", {L"RSA", L"a name"}},
                {"KSPGetProviderProperty", {L"Name", room(68)}},
                {"KSPGetKeyProperty", {key, L"SmartCardKeyCertificate", room(9)}},
                {"KSPSetProviderProperty", {L"HWND Handle", Bytes(8)}},
                {"KSPSetKeyProperty", {key, L"ChainingMode", wideBytes(L"ChainingModeCBC")}},
                {"KSPFinalizeKey", {key}},
                {"KSPEncrypt", {key, Bytes{1}, room(256)}},
                {"KSPDecrypt", {key, counting(32), room(256)}},
                {"KSPIsAlgSupported", {L"RSA"}},
                {"KSPEnumAlgorithms", {0}},
                {"KSPImportKey", {key, L"KeyDataBlob", blob}},
                {"KSPExportKey", {key, L"PUBLICBLOB", room(155)}},
                {"KSPSignHash", {key, Bytes(32), room(128)}},
                {"KSPVerifySignature", {key, Bytes(32), Bytes(128)}},
                {"KSPPromptUser", {}},
                {"KSPDeleteKey", {key}}};
    }
};

TRANSCRIPT(KspRefusalsTranscript, "the table needs no name and ignores the flags")
{
    std::array<KeyStorageFunctionTable*, 2> tables{};
    for (auto** place : {&tables[0], &tables[1], static_cast<KeyStorageFunctionTable**>(nullptr)}) {
        recorder.record("GetKeyStorageInterface", place ? "null, flags 64" : "nowhere",
                        [&] { return statusText(GetKeyStorageInterface(nullptr, place, 64)); });
    }
    const auto& version = tables[0]->version;
    recorder.note((tables[0] == tables[1] ? "one of version " : "two of version ") + std::to_string(version.MajorVersion) + "." +
                  std::to_string(version.MinorVersion));
}

TRANSCRIPT(KspRefusalsTranscript, "everything is missing, or all but a provider and a key")
{
    ksp.callEach("nothing but flags", ".*", {});
    auto closed = std::make_unique<KspProvider>();
    ksp.callEach("a provider that is not open", "P.*", {addressOf(closed.get())});
    recorder.record("KSPFreeProvider", "not open",
                    [&] { return statusText(kspSlot("KSPFreeProvider")({handOut(std::move(closed))})); });
    ksp.callEach("a provider", "P.*[A-Z].*", {ksp.provider});
    ksp.callEach("a provider and a key", "PK.*[A-Z].*", {ksp.provider, withKey(algorithmRsa1024)});
}

TRANSCRIPT(KspRefusalsTranscript, "one argument is missing, or longer than the token can count")
{
    auto all = rows();
    const auto key = withKey(algorithmRsa1024);
    all.push_back({"KSPEnumKeys", {}});
    ksp.leaveOutEach(all);
    for (const LPCWSTR property : {L"IV", L"ChainingMode", L"SmartCardKeyCertificate"}) {
        ksp("KSPSetKeyProperty", {key, property, Bytes(16)}, KspCalls::Change{5, 0x80000000});
    }
}

} // namespace quelta::test
