#include "ksp/ksp_calls.h"

#include <cstring>
#include <deque>
#include <memory>
#include <span>
#include <sstream>

namespace quelta::test {

namespace {

constexpr const char* slotsInOrder =
    "OpenProvider Htf OpenKey PHtsf CreatePersistedKey PHTtsf GetProviderProperty PTOf GetKeyProperty PKTOf "
    "SetProviderProperty PTif SetKeyProperty PKTif FinalizeKey PKf DeleteKey PKf FreeProvider p FreeKey pk FreeBuffer k "
    "Encrypt PKIxOf Decrypt PKIxOf IsAlgSupported pTf EnumAlgorithms PfHHf EnumKeys PxHHf ImportKey PkTxHIf ExportKey PKxTxOf "
    "SignHash PKxIOf VerifySignature PKxIIf PromptUser Pktf NotifyChangeKey x SecretAgreement x DeriveKey x FreeSecret x";

constexpr ULONG_PTR untouched = 0x5EED;
// An address at which nothing is, and flags, for what no slot looks at.
constexpr ULONG_PTR nowhere = 16;
constexpr DWORD anyFlags = 64;

std::string keySpecText(DWORD keySpec)
{
    return keySpec == 0 ? "" : ", " + keySpecName(keySpec);
}

} // namespace

ULONG_PTR addressOf(const void* object)
{
    return reinterpret_cast<ULONG_PTR>(object);
}

std::string statusText(SECURITY_STATUS status)
{
    return status == 0 ? "0" : errorName(static_cast<DWORD>(status));
}

const std::vector<KspSlot>& kspSlots()
{
    static const auto all = [] {
        KeyStorageFunctionTable* table = nullptr;
        requireStatus(GetKeyStorageInterface(L"", &table, 0), "GetKeyStorageInterface");
        const char* at = reinterpret_cast<const char*>(table) + 8;
        std::vector<KspSlot> slots;
        std::istringstream words(slotsInOrder);
        for (KspSlot slot; words >> slot.name >> slot.arguments; at += sizeof slot.function) {
            slot.name = "KSP" + slot.name;
            std::memcpy(&slot.function, at, sizeof slot.function);
            slots.push_back(slot);
        }
        return slots;
    }();
    return all;
}

const KspSlot& kspSlot(std::string_view name)
{
    return *std::ranges::find(kspSlots(), name, &KspSlot::name);
}

KspCalls::~KspCalls()
{
    for (const auto key : keys_) kspSlot("KSPFreeKey")({provider, key});
    for (const auto open : providers_) kspSlot("KSPFreeProvider")({open});
}

KspCalls::Handle KspCalls::operator()(const char* name, const std::vector<Stated>& stated)
{
    const KspSlot& slot = kspSlot(name);
    KspSlot::Values values{};
    auto value = values.begin();
    std::string words;
    const auto hand = [&](ULONG_PTR handed, const std::string& text = "") {
        *value++ = handed;
        words += (words.empty() || text.empty() || text.starts_with(", ") ? "" : ", ") + text;
    };
    std::deque<HandedInput> inputs;
    std::unique_ptr<HandedBuffer> output;
    Handle made = untouched;
    auto next = stated.begin();
    for (const char letter : slot.arguments) {
        const bool isMade = letter == 'H', isIgnored = letter == 'x', isProvider = letter == 'P' || letter == 'p';
        if (isMade) hand(addressOf(&made));
        if (isIgnored) hand(nowhere);
        if (isProvider) hand(provider, handle(provider));
        if (isMade || isIgnored || isProvider || next == stated.end()) continue;
        const Stated& given = *next++;
        if (const auto* input = std::get_if<Input>(&given)) {
            auto& handed = inputs.emplace_back(*input);
            hand(addressOf(handed.data()), inputWords(*input));
            hand(handed.size());
        } else if (const auto* place = std::get_if<Place>(&given)) {
            output.reset(new HandedBuffer(HandedBuffer::withResult(*place)));
            hand(addressOf(output->data()), test::words(*place));
            hand(output->room());
            hand(addressOf(output->length()));
        } else if (const auto* text = std::get_if<LPCWSTR>(&given)) {
            hand(addressOf(*text), quoted(*text));
        } else {
            const ULONG_PTR number = std::get<Number>(given).value;
            const auto word = static_cast<DWORD>(number);
            hand(number, letter == 's' ? keySpecText(word) : letter == 'f' ? flagsText(word) : handle(number));
        }
    }
    if (slot.name == "KSPFreeKey") std::erase(keys_, values[1]);
    if (slot.name == "KSPFreeProvider") std::erase(providers_, provider);
    recorder_.record(slot.name, words, [&] {
        std::string text = statusText(slot(values));
        if (output) text += output->outcome();
        if (made == untouched) return text;
        const bool isProvider = slot.name == "KSPOpenProvider";
        (isProvider ? providers_ : keys_).push_back(made);
        recorder_.introduce(isProvider ? "provider" : "key", made);
        return text + ", " + handle(made);
    });
    return made == untouched ? 0 : made;
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
    recorder_.record("KSPEnumAlgorithms", argumentsAfter(provider, "operations " + std::to_string(operations)), [&] {
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
    recorder_.record("KSPEnumKeys", argumentsAfter(provider, handle(addressOf(state))), [&] {
        const bool first = !state;
        const auto status = kspSlot("KSPEnumKeys")({provider, nowhere, addressOf(&key), addressOf(&state), anyFlags});
        if (first && state) recorder_.introduce("state", addressOf(state));
        std::string text = statusText(status) + (first && state ? ", " + handle(addressOf(state)) : "");
        if (!key) return text;
        return text + ", " + quoted(key->pszName) + " " + quoted(key->pszAlgid) + keySpecText(key->dwLegacyKeySpec) +
               flagsText(key->dwFlags);
    });
    kspSlot("KSPFreeBuffer")({addressOf(key)});
}

} // namespace quelta::test
