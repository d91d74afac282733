#include "base/table.h"
#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/output.h"
#include "ksp/provider.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>

namespace quelta {

namespace {

struct KeyQuery {
    NCRYPT_PROV_HANDLE providerHandle;
    const KspProvider& provider;
    const KspKey& key;
};

constexpr std::wstring_view chainingModeNames[] = {L"ChainingModeCBC", L"ChainingModeECB"};

// The lengths are the same for every key, even for elliptic curves.
constexpr NCRYPT_SUPPORTED_LENGTHS supportedLengths = {
    .dwMinLength = 1024,
    .dwMaxLength = 4096,
    .dwIncrement = 1024,
    .dwDefaultLength = 2048,
};

DWORD allowedUsage(std::uint32_t usage)
{
    switch (usage) {
    case usageSigning: return NCRYPT_ALLOW_SIGNING_FLAG;
    case usageKeyExchange: return NCRYPT_ALLOW_DECRYPT_FLAG;
    case usageBoth: return NCRYPT_ALLOW_SIGNING_FLAG | NCRYPT_ALLOW_DECRYPT_FLAG;
    default: return 0;
    }
}

bool hasPublicKey(const QueltaCertificate& record, const KspKey& key)
{
    const auto publicKey = publicKeyOfCertificate(certificateOf(record));
    return publicKey && !key.publicKey.empty() && sameBytes(*publicKey, key.publicKey.view());
}

PropertyValue certificateOfKey(const KeyQuery& query)
{
    const Token token = query.provider.token();
    token.initDevice(true);
    const auto certificates = token.certificates();
    auto found = std::ranges::find_if(certificates, [&](const auto& record) { return belongsTo(record, query.key); });
    if (found == certificates.end()) {
        found = std::ranges::find_if(certificates, [&](const auto& record) { return hasPublicKey(record, query.key); });
    }
    if (found == certificates.end()) {
        logError("KSP: Certificate not found for key");
        return std::unexpected(NTE_NOT_FOUND);
    }
    return toBytes(certificateOf(*found));
}

PropertyValue nameOf(const KeyQuery& query)
{
    return wideValue(query.key.tokenName());
}

struct KeyProperty {
    std::wstring_view name;
    PropertyValue (*value)(const KeyQuery& query);
};

constexpr KeyProperty keyProperties[] = {
    {L"Name", nameOf},
    {L"Algorithm Name", [](const KeyQuery& query) -> PropertyValue { return wideValue(algorithmNameOf(query.key.algorithm)); }},
    {L"Algorithm Group", [](const KeyQuery& query) -> PropertyValue { return wideValue(algorithmGroupOf(query.key.algorithm)); }},
    {L"Length", [](const KeyQuery& query) -> PropertyValue { return dwordValue(query.key.bitLength); }},
    {L"Lengths", [](const KeyQuery&) -> PropertyValue { return toBytes(bytesOf(supportedLengths)); }},
    {L"Key Usage", [](const KeyQuery& query) -> PropertyValue { return dwordValue(allowedUsage(query.key.keyUsage)); }},
    {L"Export Policy", [](const KeyQuery&) -> PropertyValue { return dwordValue(NCRYPT_ALLOW_EXPORT_FLAG); }},
    {L"Block Length", [](const KeyQuery& query) -> PropertyValue { return dwordValue(query.key.bitLength / 8); }},
    {L"Key Type", [](const KeyQuery&) -> PropertyValue { return dwordValue(0); }},
    {L"Unique Name", nameOf},
    {L"Provider Handle", [](const KeyQuery& query) -> PropertyValue { return toBytes(bytesOf(query.providerHandle)); }},
    {L"SmartCardKeyCertificate", certificateOfKey},
    {L"ChainingMode",
     [](const KeyQuery& query) -> PropertyValue {
         return wideValue(chainingModeNames[static_cast<std::size_t>(query.key.chainingMode)]);
     }},
    {L"Security Descr", [](const KeyQuery&) -> PropertyValue { return std::unexpected(NTE_NOT_SUPPORTED); }},
};

struct KeySetting {
    KspProvider& provider;
    KspKey& key;
    ByteView input;
};

std::optional<DWORD> dwordOf(ByteView input)
{
    if (input.size() < sizeof(DWORD)) return std::nullopt;
    return valueOf<DWORD>(input.data());
}

SECURITY_STATUS setCertificate(const KeySetting& setting)
{
    QueltaCertificate record{};
    if (setting.input.empty() || setting.input.size() > sizeof record.certificate) return NTE_INVALID_PARAMETER;
    const auto pin = kspEnsurePin(setting.provider);
    if (!pin) return pin.error();
    const KspKey& key = setting.key;
    std::ranges::copy(key.keyId, record.keyId);
    std::ranges::copy(setting.input, record.certificate);
    record.certificateLength = static_cast<std::int32_t>(setting.input.size());
    std::ranges::copy(key.objectId.view(), record.keyReference);
    record.keyReferenceLength = static_cast<std::int32_t>(key.objectId.size());
    std::ranges::copy(key.label.view(), record.label);
    if (const int result = setting.provider.token().importCertificate(**pin, record)) {
        logError("KSP: Import certificate failed: ", result);
        return NTE_INTERNAL_ERROR;
    }
    logDebug("KSP: Certificate stored successfully");
    return statusDone;
}

SECURITY_STATUS setPin(const KeySetting& setting)
{
    return setPinProperty(setting.provider, setting.input.data());
}

SECURITY_STATUS setWindow(const KeySetting& setting)
{
    if (const auto window = windowHandleOf(setting.input)) setting.provider.hwnd = *window;
    return statusDone;
}

SECURITY_STATUS setLength(const KeySetting& setting)
{
    if (const auto bits = dwordOf(setting.input)) {
        setting.key.bitLength = *bits;
        logDebug("KSP: Key length set to ", *bits);
    }
    return statusDone;
}

SECURITY_STATUS setUsage(const KeySetting& setting)
{
    const DWORD allowed = dwordOf(setting.input).value_or(0);
    const bool signing = (allowed & NCRYPT_ALLOW_SIGNING_FLAG) != 0;
    const bool decrypting = (allowed & NCRYPT_ALLOW_DECRYPT_FLAG) != 0;
    if (signing || decrypting) {
        setting.key.keyUsage = (signing ? usageSigning : 0) + (decrypting ? usageKeyExchange : 0);
    }
    return statusDone;
}

constexpr std::size_t longestChainingModeName = std::ranges::max(chainingModeNames, {}, &std::wstring_view::size).size();

// Returns the text up to its zero or the end of the input. Reads at most one character more than the longest known name has.
std::wstring chainingModeTextOf(ByteView input)
{
    std::wstring text;
    for (; input.size() >= sizeof(wchar_t) && text.size() <= longestChainingModeName; input = input.subspan(sizeof(wchar_t))) {
        const auto unit = valueOf<wchar_t>(input.data());
        if (unit == 0) break;
        text += unit;
    }
    return text;
}

SECURITY_STATUS setChainingMode(const KeySetting& setting)
{
    if (setting.input.empty()) return statusDone;
    if (setting.input.size() > longestDeviceLength) return NTE_INVALID_PARAMETER;
    const std::wstring name = chainingModeTextOf(setting.input);
    if (name == chainingModeNames[static_cast<std::size_t>(ChainingMode::cbc)]) {
        setting.key.chainingMode = ChainingMode::cbc;
        logDebug("KSP: Chaining mode set to CBC");
        return statusDone;
    }
    if (name == chainingModeNames[static_cast<std::size_t>(ChainingMode::ecb)]) {
        setting.key.chainingMode = ChainingMode::ecb;
        logDebug("KSP: Chaining mode set to ECB");
        return statusDone;
    }
    logError("KSP: Unsupported chaining mode");
    return NTE_NOT_SUPPORTED;
}

// Returns the IV length of the key's cipher; nullopt if the key's length fits no cipher. Then any IV length is accepted.
std::optional<std::size_t> ivLengthOf(const KspKey& key)
{
    switch (key.symmetricKey->size()) {
    case 24: return 8;
    case 16:
    case 32: return 16;
    default: return std::nullopt;
    }
}

// The IV belongs to the process, not to the key.
SECURITY_STATUS setIv(const KeySetting& setting)
{
    const ByteView iv = setting.input;
    if (iv.empty()) {
        tokenState().sharedIv.clear();
        logDebug("KSP: IV cleared");
        return statusDone;
    }
    if (iv.size() > longestDeviceLength) return NTE_INVALID_PARAMETER;
    const auto expected = ivLengthOf(setting.key);
    if (expected && *expected != iv.size()) {
        logError("KSP: IV size mismatch: got ", iv.size(), ", expected ", *expected);
        return NTE_INVALID_PARAMETER;
    }
    tokenState().sharedIv.set(iv);
    logDebug("KSP: IV set, size: ", iv.size());
    return statusDone;
}

struct SettableKeyProperty {
    std::wstring_view name;
    SECURITY_STATUS (*set)(const KeySetting& setting);
};

constexpr SettableKeyProperty settableKeyProperties[] = {
    {L"SmartCardKeyCertificate", setCertificate},
    {L"SmartCardPin", setPin},
    {L"HWND Handle", setWindow},
    {L"Length", setLength},
    {L"Key Usage", setUsage},
    {L"ChainingMode", setChainingMode},
    {L"IV", setIv},
};

} // namespace

SECURITY_STATUS WINAPI KSPGetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                         PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD)
{
    return slot("KSPGetKeyProperty", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        const auto* key = kspKeyOf(hKey);
        if (!provider || !key) return NTE_INVALID_HANDLE;
        if (!pszProperty || !pcbResult) return NTE_INVALID_PARAMETER;
        logDebug("KSP: GetKeyProperty: ", narrowed(pszProperty));
        const auto* property = findRow(keyProperties, &KeyProperty::name, pszProperty);
        if (!property) {
            logDebug("KSP: Unsupported key property");
            return NTE_NOT_SUPPORTED;
        }
        const auto value = property->value({hProvider, *provider, *key});
        return value ? putProperty({pbOutput, cbOutput, pcbResult}, *value) : value.error();
    });
}

SECURITY_STATUS WINAPI KSPSetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty, PBYTE pbInput,
                                         DWORD cbInput, DWORD)
{
    return slot("KSPSetKeyProperty", [&]() -> SECURITY_STATUS {
        auto* provider = providerOf(hProvider);
        auto* key = kspKeyOf(hKey);
        if (!provider || !key) return NTE_INVALID_HANDLE;
        if (!pszProperty) return NTE_INVALID_PARAMETER;
        const auto* property = findRow(settableKeyProperties, &SettableKeyProperty::name, pszProperty);
        if (!property) return NTE_NOT_SUPPORTED;
        return property->set({*provider, *key, propertyInput(pbInput, cbInput)});
    });
}

} // namespace quelta
