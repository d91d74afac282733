#include "ksp/provider.h"

#include "base/provider_name.h"
#include "base/table.h"
#include "ksp/function_table.h"
#include "ksp/output.h"
#include "token/handles.h"
#include "token/token_connection.h"

#include <cstdlib>

namespace quelta {

namespace {

constexpr OpeningTexts openingTexts = {
    .startingLibrary = "KSP: Library not initialised, initialising",
    .noToken = "KSP: No valid token connected",
    .openFailed = "KSP: Init device failed: ",
};

constexpr PinTexts pinTexts = {
    .alreadyValidated = "KSP: PIN already validated",
    .askingForPin = "KSP: Password not validated, checking SSO",
    .clockMismatch = "System time mismatch, Kindly login to Token Manager",
    .cancelled = "KSP: User cancelled password dialog",
};

constexpr DWORD implementationType = NCRYPT_IMPL_HARDWARE_FLAG | NCRYPT_IMPL_REMOVABLE_FLAG;

struct ProviderProperty {
    std::wstring_view name;
    PropertyValue (*value)();
};

// clang-format off
constexpr ProviderProperty providerProperties[] = {
    {L"Name", []() -> PropertyValue { return wideValue(wideProviderName); }},
    {L"Impl Type", []() -> PropertyValue { return dwordValue(implementationType); }},
    {L"Version", []() -> PropertyValue { return dwordValue(0x100); }},
    {L"Algorithm Name", []() -> PropertyValue { return wideValue(L"RSA"); }},
    {L"Max Name Length", []() -> PropertyValue { return dwordValue(256); }},
    {L"Security Descr Support", []() -> PropertyValue { return dwordValue(0); }},
    // This property is known but refused, so it is not logged as unknown.
    {L"Use Count", []() -> PropertyValue { return std::unexpected(NTE_NOT_SUPPORTED); }},
};
// clang-format on

SECURITY_STATUS setWindow(KspProvider& provider, ByteView input)
{
    // An input that is too short for a handle clears the handle.
    provider.hwnd = windowHandleOf(input).value_or(0);
    return statusDone;
}

SECURITY_STATUS setPin(KspProvider& provider, ByteView input)
{
    if (!input.data()) return NTE_INVALID_PARAMETER;
    logDebug("KSP: Setting PIN via property");
    return setPinProperty(provider, input.data());
}

struct SettableProperty {
    std::wstring_view name;
    SECURITY_STATUS (*set)(KspProvider& provider, ByteView input);
};

constexpr SettableProperty settableProperties[] = {
    {L"HWND Handle", setWindow},
    {L"SmartCardPin", setPin},
};

} // namespace

KspProvider* providerOf(NCRYPT_PROV_HANDLE handle)
{
    auto* provider = recordOf<KspProvider>(handle);
    return provider && provider->isOpen ? provider : nullptr;
}

std::expected<Pin, SECURITY_STATUS> kspEnsurePin(const KspProvider& provider, Pin cached)
{
    if (auto pin = ensurePin(provider.token(), pinTexts, std::move(cached))) return *std::move(pin);
    return std::unexpected(NTE_FAIL);
}

SECURITY_STATUS setPinProperty(const KspProvider& provider, const BYTE* input)
{
    if (!input) return NTE_INVALID_PARAMETER;
    if (const int result = validateGivenPin(provider.token(), reinterpret_cast<const char*>(input))) {
        logError("KSP: PIN validation failed: ", result);
        return NTE_VALIDATION_FAILED;
    }
    return statusDone;
}

std::optional<std::uint64_t> windowHandleOf(ByteView input)
{
    if (input.size() < sizeof(std::uint64_t)) return std::nullopt;
    return valueOf<std::uint64_t>(input.data());
}

SECURITY_STATUS WINAPI KSPOpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR, DWORD)
{
    return slot("KSPOpenProvider", [&]() -> SECURITY_STATUS {
        if (!phProvider) return NTE_INVALID_PARAMETER;
        auto provider = makeRecordOrNull<KspProvider>();
        if (!provider) return NTE_NO_MEMORY;
        auto deviceId = openFirstToken(provider->libraryContext, openingTexts);
        if (!deviceId) return deviceId.error() == OpeningFailure::noToken ? NTE_DEVICE_NOT_FOUND : NTE_PROVIDER_DLL_FAIL;
        provider->deviceId = *std::move(deviceId);
        provider->isOpen = true;
        *phProvider = handOut(std::move(provider));
        logDebug("KSP: Provider opened successfully");
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPFreeProvider(NCRYPT_PROV_HANDLE hProvider)
{
    return slot("KSPFreeProvider", [&]() -> SECURITY_STATUS {
        if (!hProvider) return NTE_INVALID_HANDLE;
        takeBack<KspProvider>(hProvider).reset();
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPGetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                                              DWORD* pcbResult, DWORD)
{
    return slot("KSPGetProviderProperty", [&]() -> SECURITY_STATUS {
        if (!providerOf(hProvider)) return NTE_INVALID_HANDLE;
        if (!pszProperty || !pcbResult) return NTE_INVALID_PARAMETER;
        const auto* property = findRow(providerProperties, &ProviderProperty::name, pszProperty);
        if (!property) {
            logDebug("KSP: Unsupported provider property");
            return NTE_NOT_SUPPORTED;
        }
        const auto value = property->value();
        return value ? putProperty({pbOutput, cbOutput, pcbResult}, *value) : value.error();
    });
}

SECURITY_STATUS WINAPI KSPSetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput,
                                              DWORD)
{
    return slot("KSPSetProviderProperty", [&]() -> SECURITY_STATUS {
        auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        if (!pszProperty) return NTE_INVALID_PARAMETER;
        const auto* property = findRow(settableProperties, &SettableProperty::name, pszProperty);
        return property ? property->set(*provider, propertyInput(pbInput, cbInput)) : NTE_NOT_SUPPORTED;
    });
}

SECURITY_STATUS WINAPI KSPFreeBuffer(PVOID pvInput)
{
    return slot("KSPFreeBuffer", [&]() -> SECURITY_STATUS {
        std::free(pvInput);
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPPromptUser(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE, LPCWSTR, DWORD)
{
    return slot("KSPPromptUser", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        const auto pin = kspEnsurePin(*provider);
        return pin ? statusDone : pin.error();
    });
}

SECURITY_STATUS WINAPI KSPNotifyChangeKey(NCRYPT_PROV_HANDLE, HANDLE*, DWORD)
{
    return slot("KSPNotifyChangeKey", []() -> SECURITY_STATUS { return NTE_NOT_SUPPORTED; });
}

SECURITY_STATUS WINAPI KSPSecretAgreement(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_SECRET_HANDLE*, DWORD)
{
    return slot("KSPSecretAgreement", []() -> SECURITY_STATUS { return NTE_NOT_SUPPORTED; });
}

SECURITY_STATUS WINAPI KSPDeriveKey(NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE, LPCWSTR, NCryptBufferDesc*, PBYTE, DWORD, DWORD*,
                                    ULONG)
{
    return slot("KSPDeriveKey", []() -> SECURITY_STATUS { return NTE_NOT_SUPPORTED; });
}

SECURITY_STATUS WINAPI KSPFreeSecret(NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE)
{
    return slot("KSPFreeSecret", []() -> SECURITY_STATUS { return statusDone; });
}

} // namespace quelta
