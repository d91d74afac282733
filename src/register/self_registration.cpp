#include "register/self_registration.h"

#include "base/provider_name.h"
#include "log/log_writer.h"

#include <ncrypt.h>

namespace quelta {

namespace {

using RegisterProvider = NTSTATUS(WINAPI*)(LPCWSTR provider, ULONG flags, CRYPT_PROVIDER_REG* registration);
using UnregisterProvider = NTSTATUS(WINAPI*)(LPCWSTR provider);
using AddContextFunctionProvider = NTSTATUS(WINAPI*)(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function,
                                                     LPCWSTR provider, ULONG position);
using RemoveContextFunctionProvider = NTSTATUS(WINAPI*)(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function,
                                                        LPCWSTR provider);

constexpr ULONG interfaceId = NCRYPT_KEY_STORAGE_INTERFACE;
constexpr wchar_t functionName[] = NCRYPT_KEY_STORAGE_ALGORITHM;

// Returns the HRESULT form of an NTSTATUS.
HRESULT asResult(NTSTATUS status)
{
    return static_cast<HRESULT>(static_cast<ULONG>(status) | 0x10000000UL);
}

class LoadedLibrary {
public:
    explicit LoadedLibrary(const CngLibrary& cng) : cng_(cng), library_(cng.load()) {}
    ~LoadedLibrary()
    {
        if (library_) cng_.free(library_);
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    explicit operator bool() const { return library_ != nullptr; }

    template <class Function>
    Function find(const char* name) const
    {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(cng_.find(library_, name)));
    }

private:
    const CngLibrary& cng_;
    HMODULE library_;
};

NTSTATUS callRegister(RegisterProvider registerFunction)
{
    // The published records declare their texts as writable, but nothing writes to them.
    wchar_t image[] = L"QueltaCSP.dll";
    wchar_t function[] = NCRYPT_KEY_STORAGE_ALGORITHM;
    PWSTR functions[] = {function};
    CRYPT_INTERFACE_REG interfaceRecord{};
    interfaceRecord.dwInterface = interfaceId;
    interfaceRecord.dwFlags = CRYPT_LOCAL;
    interfaceRecord.cFunctions = 1;
    interfaceRecord.rgpszFunctions = functions;
    PCRYPT_INTERFACE_REG interfaces[] = {&interfaceRecord};
    CRYPT_IMAGE_REG imageRecord{};
    imageRecord.pszImage = image;
    imageRecord.cInterfaces = 1;
    imageRecord.rgpInterfaces = interfaces;
    CRYPT_PROVIDER_REG registration{};
    registration.pUM = &imageRecord;
    return registerFunction(wideProviderName, 0, &registration);
}

void removeFromTable(RemoveContextFunctionProvider remove)
{
    if (remove) remove(CRYPT_LOCAL, nullptr, interfaceId, functionName, wideProviderName);
}

HRESULT registerWith(const LoadedLibrary& library)
{
    const auto registerFunction = library.find<RegisterProvider>("BCryptRegisterProvider");
    const auto unregister = library.find<UnregisterProvider>("BCryptUnregisterProvider");
    const auto add = library.find<AddContextFunctionProvider>("BCryptAddContextFunctionProvider");
    if (!registerFunction || !unregister || !add) {
        logError("Failed to find BCrypt registration functions");
        return E_FAIL;
    }
    // Remove an earlier registration first, so that registering twice is no error.
    removeFromTable(library.find<RemoveContextFunctionProvider>("BCryptRemoveContextFunctionProvider"));
    unregister(wideProviderName);
    if (const NTSTATUS status = callRegister(registerFunction); status != 0) {
        // The number after "0x" is decimal. Administrators search their logs for this line, so it stays unchanged.
        logError("BCryptRegisterProvider failed: 0x", status);
        return asResult(status);
    }
    const NTSTATUS status = add(CRYPT_LOCAL, nullptr, interfaceId, functionName, wideProviderName, CRYPT_PRIORITY_BOTTOM);
    if (status != 0) {
        logError("BCryptAddContextFunctionProvider failed: 0x", status);
        return asResult(status);
    }
    return S_OK;
}

class SystemCngLibrary final : public CngLibrary {
public:
    HMODULE load() const override { return LoadLibraryW(L"bcrypt.dll"); }
    FARPROC find(HMODULE library, const char* function) const override { return GetProcAddress(library, function); }
    void free(HMODULE library) const override { FreeLibrary(library); }
};

} // namespace

HRESULT registerProvider(const CngLibrary& cng) noexcept
{
    logDebug("DllRegisterServer: Registering KSP via CNG API");
    HRESULT result = E_FAIL;
    {
        const LoadedLibrary loaded(cng);
        if (!loaded) {
            logError("Failed to load bcrypt.dll");
            return E_FAIL;
        }
        result = registerWith(loaded);
    }
    if (result == S_OK) logDebug("DllRegisterServer: KSP registered successfully");
    return result;
}

HRESULT unregisterProvider(const CngLibrary& cng) noexcept
{
    logDebug("DllUnregisterServer: Unregistering KSP via CNG API");
    {
        const LoadedLibrary loaded(cng);
        if (!loaded) return E_FAIL;
        const auto unregister = loaded.find<UnregisterProvider>("BCryptUnregisterProvider");
        removeFromTable(loaded.find<RemoveContextFunctionProvider>("BCryptRemoveContextFunctionProvider"));
        if (unregister) unregister(wideProviderName);
    }
    logDebug("DllUnregisterServer: KSP unregistered successfully");
    return S_OK;
}

} // namespace quelta

using namespace quelta;

HRESULT WINAPI DllRegisterServer()
{
    return registerProvider(SystemCngLibrary());
}

HRESULT WINAPI DllUnregisterServer()
{
    return unregisterProvider(SystemCngLibrary());
}
