#include "ksp/ksp_scenario.h"

#include "encoding/rsa_public_key.h"
#include "ksp/key.h"
#include "token/record_fields.h"

#include <cstring>
#include <span>
#include <sstream>

namespace quelta::test {

namespace {

constexpr const char* slotsInOrder =
    "OpenProvider Htf OpenKey PHtnf CreatePersistedKey PHTtnf GetProviderProperty PTBRCf GetKeyProperty PKTBRCf "
    "SetProviderProperty PTdlf SetKeyProperty PKTdlf FinalizeKey PKf DeleteKey PKf FreeProvider p FreeKey pk FreeBuffer k "
    "Encrypt PKDLxBRCf Decrypt PKDLxBRCf IsAlgSupported pTf EnumAlgorithms PnAAf EnumKeys PxAAf ImportKey PkTxHDLf "
    "ExportKey PKxTxBRCf SignHash PKxDLBRCf VerifySignature PKxDLDLf PromptUser Pxxf NotifyChangeKey x SecretAgreement x "
    "DeriveKey x FreeSecret x";

} // namespace

const std::vector<Function>& kspSlots()
{
    static const auto all = [] {
        KeyStorageFunctionTable* table = nullptr;
        requireStatus(GetKeyStorageInterface(L"", &table, 0), "GetKeyStorageInterface");
        const char* at = reinterpret_cast<const char*>(table) + 8;
        std::vector<Function> slots;
        std::istringstream words(slotsInOrder);
        for (Function slot; words >> slot.name >> slot.arguments; at += sizeof slot.address) {
            slot.name = "KSP" + slot.name;
            std::memcpy(&slot.address, at, sizeof slot.address);
            slots.push_back(slot);
        }
        return slots;
    }();
    return all;
}

const Function& kspSlot(std::string_view name)
{
    return *std::ranges::find(kspSlots(), name, &Function::name);
}

NCRYPT_PROV_HANDLE KspCalls::openProvider(LPCWSTR name, DWORD flags)
{
    const auto opened = (*this)("KSPOpenProvider", {name, flags});
    if (opened != 0) provider = opened;
    return opened;
}

void KspCalls::enumAlgorithms(DWORD operations)
{
    NCryptAlgorithmName* list = nullptr;
    recorder_.record("KSPEnumAlgorithms", handle(provider) + ", operations " + std::to_string(operations), [&] {
        DWORD count = 0;
        const auto status = kspSlot("KSPEnumAlgorithms")({provider, operations, addressOf(&count), addressOf(&list), anyFlags});
        std::string text = statusText(status);
        for (const auto& row : std::span(list, list ? count : 0)) {
            text += "; " + quoted(row.pszName) + " class " + std::to_string(row.dwClass) + " operations " +
                    std::to_string(row.dwAlgOperations) + flagsText(row.dwFlags);
        }
        return text;
    });
    kspSlot("KSPFreeBuffer")({addressOf(list)});
}

void KspCalls::enumKeys(void*& state)
{
    NCryptKeyName* key = nullptr;
    recorder_.record("KSPEnumKeys", handle(provider) + ", " + handle(addressOf(state)), [&] {
        const bool first = !state;
        const auto status = kspSlot("KSPEnumKeys")({provider, unreadable, addressOf(&key), addressOf(&state), anyFlags});
        if (first && state) recorder_.introduce("state", addressOf(state));
        std::string text = statusText(status) + (first && state ? ", " + handle(addressOf(state)) : "");
        if (!key) return text;
        return text + ", " + quoted(key->pszName) + " " + quoted(key->pszAlgid) + " key spec " +
               std::to_string(key->dwLegacyKeySpec) + flagsText(key->dwFlags);
    });
    kspSlot("KSPFreeBuffer")({addressOf(key)});
}

Bytes cngBlob(const Bytes& key)
{
    const auto size = static_cast<std::uint32_t>(key.size());
    return concat({littleEndian({0x31415352, size * 8, 3, size, 0, 0}), Bytes{1, 0, 1}, key});
}

NCRYPT_KEY_HANDLE KspScenario::opened(const QueltaKeyPair& pair)
{
    const auto key = silently([&] { return ksp("KSPOpenKey", {wideKeyName(pair).c_str()}); });
    const std::string word = "of " + toHex(pair.keyId).substr(0, 2) + "..";
    if (publicKeyOf(pair).empty()) return key;
    recorder.call(rawModulusToDer(publicKeyOf(pair)), "DER of the modulus " + word);
    recorder.call(publicKeyOf(pair), "the public key " + word);
    return key;
}

NCRYPT_KEY_HANDLE KspScenario::clearKey(const Bytes& value)
{
    const auto with = withKey(algorithmRsa2048, usageKeyExchange);
    token.plain.bytes = value;
    const auto key = silently([&] { return ksp("KSPImportKey", {with, L"OpaqueTransport", Bytes(256)}); });
    token.plain = {};
    return key;
}

} // namespace quelta::test
