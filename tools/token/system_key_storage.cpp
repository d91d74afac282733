#include "tools/token/system_key_storage.h"

#include "base/provider_name.h"

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

// Wine opens a provider of its own by any name.
bool systemLoadsProvider()
{
    NCRYPT_PROV_HANDLE provider = 0;
    if (NCryptOpenStorageProvider(&provider, wideProviderName, 0)) return false;
    std::array<wchar_t, 128> name{};
    DWORD size = 0;
    const auto status = NCryptGetProperty(provider, NCRYPT_NAME_PROPERTY, reinterpret_cast<PBYTE>(name.data()),
                                          static_cast<DWORD>(sizeof(wchar_t) * (name.size() - 1)), &size, 0);
    NCryptFreeObject(provider);
    return status == 0 && std::wstring_view(name.data()) == wideProviderName;
}

} // namespace

const KeyStorageFunctionTable* systemKeyStorage()
{
    static constexpr KeyStorageFunctionTable table = adapters();
    return systemLoadsProvider() ? &table : nullptr;
}

} // namespace quelta::tools
