#include "tools/token/key_storage.h"

#include "base/provider_name.h"
#include "base/text.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quelta::tools {

namespace {

using Provider = NCRYPT_PROV_HANDLE;
using Key = NCRYPT_KEY_HANDLE;

constexpr KeyStorageFunctionTable adapters()
{
    KeyStorageFunctionTable table{};
    table.OpenProvider = [](Provider* provider, LPCWSTR name, DWORD flags) {
        return NCryptOpenStorageProvider(provider, name, flags);
    };
    table.OpenKey = [](Provider provider, Key* key, LPCWSTR name, DWORD spec, DWORD flags) {
        return NCryptOpenKey(provider, key, name, spec, flags);
    };
    table.GetProviderProperty = [](Provider provider, LPCWSTR property, PBYTE output, DWORD size, DWORD* result, DWORD flags) {
        return NCryptGetProperty(provider, property, output, size, result, flags);
    };
    table.GetKeyProperty = [](Provider, Key key, LPCWSTR property, PBYTE output, DWORD size, DWORD* result, DWORD flags) {
        return NCryptGetProperty(key, property, output, size, result, flags);
    };
    table.SetProviderProperty = [](Provider provider, LPCWSTR property, PBYTE input, DWORD size, DWORD flags) {
        return NCryptSetProperty(provider, property, input, size, flags);
    };
    table.FreeProvider = [](Provider provider) { return NCryptFreeObject(provider); };
    table.FreeKey = [](Provider, Key key) { return NCryptFreeObject(key); };
    table.FreeBuffer = [](PVOID buffer) { return NCryptFreeBuffer(buffer); };
    table.EnumKeys = [](Provider provider, LPCWSTR scope, NCryptKeyName** name, PVOID* state, DWORD flags) {
        return NCryptEnumKeys(provider, scope, name, state, flags);
    };
    table.SignHash = [](Provider, Key key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature, DWORD size, DWORD* result,
                        DWORD flags) { return NCryptSignHash(key, padding, hash, hashSize, signature, size, result, flags); };
    table.Decrypt = [](Provider, Key key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output, DWORD size, DWORD* result,
                       DWORD flags) { return NCryptDecrypt(key, input, inputSize, padding, output, size, result, flags); };
    return table;
}

// Looks where CryptoAPI's registration says, since a second copy in this process would ask for the PIN a second time; then beside
// this program and in the system's folder. Null if there is none that can be loaded.
Library loadModule()
{
    const auto path = registeredModule();
    Library module(path.is_absolute() ? LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH) : nullptr);
    if (!module) module.reset(LoadLibraryExW(moduleName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
    return module;
}

} // namespace

KeyStorage::KeyStorage()
{
    static constexpr KeyStorageFunctionTable ofSystem = adapters();
    table_ = &ofSystem;
    if (isKeyStorageRegistered()) return;
    module_ = loadModule();
    if (!module_) throw Failure("can't load QueltaCSP.dll with its QueltaDSCLibrary.dll; quelta check tells what is missing");
    // By way of void*: compilers warn of a cast between unlike function types, which is what a look-up by name is for.
    void* const address = reinterpret_cast<void*>(GetProcAddress(module_.get(), "GetKeyStorageInterface"));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFunction>(address);
    KeyStorageFunctionTable* table = nullptr;
    if (!getInterface || getInterface(wideProviderName, &table, 0) || !table)
        throw Failure("QueltaCSP.dll offers no key storage; install a complete one, or use --provider csp");
    table_ = table;
}

bool isKeyStorageRegistered()
{
    DWORD count = 0;
    NCryptProviderName* names = nullptr;
    if (isWine() || NCryptEnumStorageProviders(&count, &names, 0)) return false;
    const bool found = std::ranges::any_of(std::span(names, count), [](const NCryptProviderName& provider) {
        return std::wstring_view(provider.pszName) == wideProviderName;
    });
    NCryptFreeBuffer(names);
    return found;
}

std::filesystem::path registeredModule()
{
    std::array<wchar_t, 1024> path{};
    auto size = static_cast<DWORD>(sizeof path);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, toWide(providerRegistryKey()).c_str(), L"Image Path", RRF_RT_REG_SZ, nullptr,
                     path.data(), &size))
        return {};
    // CryptoAPI expands variables whatever the value's type.
    std::array<wchar_t, 1024> expanded{};
    ExpandEnvironmentStringsW(path.data(), expanded.data(), static_cast<DWORD>(expanded.size()));
    return expanded.data();
}

} // namespace quelta::tools
