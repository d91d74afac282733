#include "ksp/ksp_scenario.h"

#include "ksp/ksp_test.h"
#include "ksp/provider.h"
#include "token/handles.h"

#include <new>
#include <stdexcept>

namespace quelta::test {

namespace {

// What a slot can't do without; some are there only to be refused.
enum class Needs { absent, nothing, provider, providerAndMore, key, keyAndMore };

struct Slot {
    const char* name;
    Needs needs;
};

// In the order in which a caller finds them.
constexpr Slot slots[] = {
    {"KSPOpenProvider", Needs::nothing},
    {"KSPOpenKey", Needs::providerAndMore},
    {"KSPCreatePersistedKey", Needs::providerAndMore},
    {"KSPGetProviderProperty", Needs::providerAndMore},
    {"KSPGetKeyProperty", Needs::keyAndMore},
    {"KSPSetProviderProperty", Needs::providerAndMore},
    {"KSPSetKeyProperty", Needs::keyAndMore},
    {"KSPFinalizeKey", Needs::key},
    {"KSPDeleteKey", Needs::key},
    {"KSPFreeProvider", Needs::nothing},
    {"KSPFreeKey", Needs::nothing},
    {"KSPFreeBuffer", Needs::nothing},
    {"KSPEncrypt", Needs::keyAndMore},
    {"KSPDecrypt", Needs::keyAndMore},
    {"KSPIsAlgSupported", Needs::nothing},
    {"KSPEnumAlgorithms", Needs::providerAndMore},
    {"KSPEnumKeys", Needs::providerAndMore},
    {"KSPImportKey", Needs::providerAndMore},
    {"KSPExportKey", Needs::keyAndMore},
    {"KSPSignHash", Needs::keyAndMore},
    {"KSPVerifySignature", Needs::keyAndMore},
    {"KSPPromptUser", Needs::provider},
    {"KSPNotifyChangeKey", Needs::absent},
    {"KSPSecretAgreement", Needs::absent},
    {"KSPDeriveKey", Needs::absent},
    {"KSPFreeSecret", Needs::absent},
};

// As many arguments as any slot takes; the calling convention lets the callee ignore what is left over.
using AnySlot = SECURITY_STATUS(WINAPI*)(std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t,
                                         std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t);

// What a caller finds there that knows the published layout alone.
template <class T>
T atOffset(const KeyStorageFunctionTable& table, std::size_t offset)
{
    T value{};
    std::memcpy(&value, reinterpret_cast<const unsigned char*>(&table) + offset, sizeof value);
    return value;
}

} // namespace

// In which order arguments are looked at shows where all of them are wrong.
class KspRefusalsTranscript : public KspScenario {
protected:
    // Those that need something from `least` to `most`, with two arguments and otherwise zeros; grouped by their answers.
    void callEach(Needs least, Needs most, std::uintptr_t first, std::uintptr_t second)
    {
        for (std::size_t i = 0; i < std::size(slots); ++i) {
            if (slots[i].needs < least || slots[i].needs > most) continue;
            const auto slot = atOffset<AnySlot>(ksp.table, 8 + i * sizeof(AnySlot));
            refuses(slots[i].name, slots[i].name, slot(first, second, 0, 0, 0, 0, 0, 0, 0));
        }
        noteRefusals();
    }
    void refuses(const std::string& words, const char* slot, SECURITY_STATUS status)
    {
        const bool namesItselfAlone = log.takeLines() == std::vector{debug(slot)};
        answers_[status == 0 ? "0" : errorName(static_cast<DWORD>(status))].push_back(namesItselfAlone ? words : words + " (!)");
    }
    void noteRefusals()
    {
        for (const auto& [status, names] : std::exchange(answers_, {})) {
            for (std::size_t i = 0; i < names.size(); i += 6) {
                std::string line = status + ":";
                for (const auto& name : std::span(names).subspan(i, std::min<std::size_t>(6, names.size() - i)))
                    line += " " + name;
                recorder.note(line);
            }
        }
    }

private:
    std::map<std::string, std::vector<std::string>> answers_;
};

TEST_F(KspRefusalsTranscript, TableIsFoundWhateverTheNameAndTheFlags)
{
    KeyStorageFunctionTable* table = nullptr;
    ksp.call("GetKeyStorageInterface", "\"any name\", flags 64", [&] { return GetKeyStorageInterface(L"any name", &table, 64); });
    recorder.note(std::string("version ") + std::to_string(atOffset<std::uint16_t>(*table, 0)) + "." +
                  std::to_string(atOffset<std::uint16_t>(*table, 2)) + ", " + (table == &ksp.table ? "one" : "one of many") +
                  " for the process");
    ksp.call("GetKeyStorageInterface", "null, nowhere", [] { return GetKeyStorageInterface(nullptr, nullptr, 0); });
}

TEST_F(KspRefusalsTranscript, NothingAtAll)
{
    callEach(Needs::absent, Needs::keyAndMore, 0, 0);
}

TEST_F(KspRefusalsTranscript, ProviderThatIsNotOpenCanOnlyBeFreed)
{
    auto closed = std::make_unique<KspProvider>();
    callEach(Needs::provider, Needs::keyAndMore, reinterpret_cast<std::uintptr_t>(closed.get()), 0);
    ksp.call("KSPFreeProvider", "not open", [&] { return ksp.table.FreeProvider(handOut(std::move(closed))); });
}

TEST_F(KspRefusalsTranscript, ProviderAndNothingElse)
{
    open();
    callEach(Needs::providerAndMore, Needs::keyAndMore, ksp.provider, 0);
}

TEST_F(KspRefusalsTranscript, ProviderKeyAndNothingElse)
{
    open();
    callEach(Needs::keyAndMore, Needs::keyAndMore, ksp.provider, opened(token.withKeyPair(usageBoth, algorithmRsa1024)));
}

TEST_F(KspRefusalsTranscript, OneThingMissing)
{
    open();
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024));
    const auto& table = ksp.table;
    const NCRYPT_PROV_HANDLE provider = ksp.provider;
    NCRYPT_KEY_HANDLE made = 0;
    BYTE byte = 1;
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    NCryptKeyName* name = nullptr;
    void* state = nullptr;
    log.forget();
    const auto without = [this](const std::string& missing, const char* slot, SECURITY_STATUS status) {
        refuses(slot + (" without " + missing) + ",", slot, status);
    };
    without("handle", "KSPOpenKey", table.OpenKey(provider, nullptr, L"A", 0, 0));
    without("handle", "KSPCreatePersistedKey", table.CreatePersistedKey(provider, nullptr, L"RSA", L"", 0, 0));
    without("algorithm", "KSPCreatePersistedKey", table.CreatePersistedKey(provider, &made, nullptr, L"", 0, 0));
    without("list", "KSPEnumAlgorithms", table.EnumAlgorithms(provider, 0, &count, nullptr, 0));
    without("count", "KSPEnumAlgorithms", table.EnumAlgorithms(provider, 0, nullptr, &list, 0));
    without("state", "KSPEnumKeys", table.EnumKeys(provider, nullptr, &name, nullptr, 0));
    without("name", "KSPEnumKeys", table.EnumKeys(provider, nullptr, nullptr, &state, 0));
    without("result", "KSPGetProviderProperty", table.GetProviderProperty(provider, L"Name", nullptr, 0, nullptr, 0));
    without("result", "KSPGetKeyProperty", table.GetKeyProperty(provider, key, L"Name", nullptr, 0, nullptr, 0));
    const auto import = [&](LPCWSTR type, NCRYPT_KEY_HANDLE* out, PBYTE data, DWORD size) {
        return table.ImportKey(provider, key, type, nullptr, out, data, size, 0);
    };
    without("type", "KSPImportKey", import(nullptr, &made, &byte, 1));
    without("handle", "KSPImportKey", import(L"?", nullptr, &byte, 1));
    without("blob", "KSPImportKey", import(L"?", &made, nullptr, 1));
    without("length", "KSPImportKey", import(L"?", &made, &byte, 0));
    without("type", "KSPExportKey", table.ExportKey(provider, key, 0, nullptr, nullptr, nullptr, 0, &count, 0));
    without("result", "KSPExportKey", table.ExportKey(provider, key, 0, L"PUBLICBLOB", nullptr, nullptr, 0, nullptr, 0));
    for (const auto& [slot, call] : {std::pair("KSPEncrypt", table.Encrypt), {"KSPDecrypt", table.Decrypt}}) {
        without("key", slot, call(provider, 0, &byte, 1, nullptr, &byte, 1, &count, 0));
        without("result", slot, call(provider, key, &byte, 1, nullptr, nullptr, 0, nullptr, 0));
    }
    without("key", "KSPSignHash", table.SignHash(provider, 0, nullptr, &byte, 1, &byte, 1, &count, 0));
    without("result", "KSPSignHash", table.SignHash(provider, key, nullptr, &byte, 1, nullptr, 0, nullptr, 0));
    noteRefusals();
    recorder.note("lengths that the token could not count");
    constexpr DWORD tooLong = 0x80000000;
    without("end", "KSPImportKey", import(L"PUBLICBLOB", &made, &byte, tooLong));
    for (const LPCWSTR property : {L"IV", L"ChainingMode", L"SmartCardKeyCertificate"}) {
        without("end", "KSPSetKeyProperty", table.SetKeyProperty(provider, key, property, &byte, tooLong, 0));
    }
    without("end", "KSPEncrypt", table.Encrypt(provider, key, &byte, tooLong, nullptr, &byte, 128, &count, 0));
    without("end", "KSPDecrypt", table.Decrypt(provider, key, &byte, tooLong, nullptr, &byte, 128, &count, 0));
    without("end", "KSPSignHash", table.SignHash(provider, key, nullptr, &byte, tooLong, &byte, 128, &count, 0));
    without("end", "KSPVerifySignature", table.VerifySignature(provider, key, nullptr, &byte, tooLong, &byte, 1, 0));
    without("end", "KSPVerifySignature", table.VerifySignature(provider, key, nullptr, &byte, 1, &byte, tooLong, 0));
    noteRefusals();
    const bool untouched = made == 0 && count == 0 && !list && !name && !state;
    recorder.note(untouched ? "nothing was handed out" : "something was handed out");
}

TEST_F(KspRefusalsTranscript, ArgumentsOfSlotsThatAreNotThereAreNotLookedAt)
{
    callEach(Needs::absent, Needs::absent, 16, 16);
}

TEST_F(KspRefusalsTranscript, ExceptionsOfTheLibraryBecomeStatuses)
{
    open();
    const auto key = opened(token.withKeyPair(usageBoth, algorithmRsa1024)), unfinished = created(L"RSA");
    token.withAesKey(encryptionAes128);
    cachePin();
    errorsAlone();
    const auto sign = [&] { ksp.signHash(key, Bytes{1}, room(128)); };
    token.during(Call::signHash, [] { throw 5; });
    sign();
    token.during(Call::signHash, [] { throw std::bad_alloc(); });
    sign();
    const auto losing = [this](Call call, const std::function<void()>& slot) {
        token.during(call, [] { throw std::runtime_error("lost"); });
        slot();
    };
    losing(Call::signHash, sign);
    losing(Call::getConnectedDeviceList, [&] { ksp.openProvider(); });
    void* state = nullptr;
    losing(Call::getKeyPairList, [&] { ksp.enumKeys(state); });
    recorder.note(state ? "an enumeration has begun" : "no enumeration has begun");
    losing(Call::generateKeyPair, [&] { ksp.finalizeKey(unfinished); });
    ksp.getKeyProperty(unfinished, L"Length", room(4));
    losing(Call::decryptAes, [&] { ksp.importKey(L"OpaqueKeyBlob", Bytes{1}); });
    tokenState().pinCache.clear();
    losing(Call::getTokenInfo, [&] { ksp.promptUser(0, nullptr); });
}

} // namespace quelta::test
