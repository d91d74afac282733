// An ncrypt.dll for the example of key storage, since Wine's ncrypt.dll loads no provider. Each function calls the slot of the
// built module's table. Only one provider can be open.
#include "base/key_storage_table.h"

#include <windows.h>

namespace {

using namespace quelta;

NCRYPT_PROV_HANDLE opened = 0;

const KeyStorageFunctionTable& table()
{
    static const HMODULE module = LoadLibraryA("QueltaCSP.dll");
    auto* const function = reinterpret_cast<void*>(GetProcAddress(module, "GetKeyStorageInterface"));
    KeyStorageFunctionTable* found = nullptr;
    reinterpret_cast<GetKeyStorageInterfaceFunction>(function)(L"", &found, 0);
    return *found;
}

} // namespace

extern "C" {

SECURITY_STATUS WINAPI NCryptOpenStorageProvider(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags)
{
    const SECURITY_STATUS status = table().OpenProvider(provider, name, flags);
    opened = *provider;
    return status;
}
SECURITY_STATUS WINAPI NCryptEnumKeys(NCRYPT_PROV_HANDLE provider, LPCWSTR scope, NCryptKeyName** name, PVOID* state, DWORD flags)
{
    return table().EnumKeys(provider, scope, name, state, flags);
}
SECURITY_STATUS WINAPI NCryptOpenKey(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* key, LPCWSTR name, DWORD spec, DWORD flags)
{
    return table().OpenKey(provider, key, name, spec, flags);
}
SECURITY_STATUS WINAPI NCryptGetProperty(NCRYPT_HANDLE key, LPCWSTR name, PBYTE output, DWORD size, DWORD* result, DWORD flags)
{
    return table().GetKeyProperty(opened, key, name, output, size, result, flags);
}
SECURITY_STATUS WINAPI NCryptSetProperty(NCRYPT_HANDLE key, LPCWSTR name, PBYTE input, DWORD size, DWORD flags)
{
    return table().SetKeyProperty(opened, key, name, input, size, flags);
}
SECURITY_STATUS WINAPI NCryptSignHash(NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature,
                                      DWORD size, DWORD* result, DWORD flags)
{
    return table().SignHash(opened, key, padding, hash, hashSize, signature, size, result, flags);
}
SECURITY_STATUS WINAPI NCryptVerifySignature(NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature,
                                             DWORD size, DWORD flags)
{
    return table().VerifySignature(opened, key, padding, hash, hashSize, signature, size, flags);
}
SECURITY_STATUS WINAPI NCryptFreeBuffer(PVOID buffer)
{
    return table().FreeBuffer(buffer);
}
SECURITY_STATUS WINAPI NCryptFreeObject(NCRYPT_HANDLE object)
{
    return object == opened ? table().FreeProvider(object) : table().FreeKey(opened, object);
}

} // extern "C"
