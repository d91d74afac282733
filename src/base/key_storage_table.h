// The published NCRYPT_KEY_STORAGE_FUNCTION_TABLE, version 1.0. The mingw headers do not declare it.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>

#include <cstddef>

namespace quelta {

struct KeyStorageFunctionTable {
    using Status = SECURITY_STATUS;
    using Provider = NCRYPT_PROV_HANDLE;
    using Key = NCRYPT_KEY_HANDLE;
    using Secret = NCRYPT_SECRET_HANDLE;

    BCRYPT_INTERFACE_VERSION version;

    Status(WINAPI* OpenProvider)(Provider* provider, LPCWSTR name, DWORD flags);
    Status(WINAPI* OpenKey)(Provider provider, Key* key, LPCWSTR name, DWORD legacySpec, DWORD flags);
    Status(WINAPI* CreatePersistedKey)(Provider provider, Key* key, LPCWSTR algorithm, LPCWSTR name, DWORD legacySpec,
                                       DWORD flags);
    Status(WINAPI* GetProviderProperty)(Provider provider, LPCWSTR property, PBYTE output, DWORD outputSize, DWORD* result,
                                        DWORD flags);
    Status(WINAPI* GetKeyProperty)(Provider provider, Key key, LPCWSTR property, PBYTE output, DWORD outputSize, DWORD* result,
                                   DWORD flags);
    Status(WINAPI* SetProviderProperty)(Provider provider, LPCWSTR property, PBYTE input, DWORD inputSize, DWORD flags);
    Status(WINAPI* SetKeyProperty)(Provider provider, Key key, LPCWSTR property, PBYTE input, DWORD inputSize, DWORD flags);
    Status(WINAPI* FinalizeKey)(Provider provider, Key key, DWORD flags);
    Status(WINAPI* DeleteKey)(Provider provider, Key key, DWORD flags);
    Status(WINAPI* FreeProvider)(Provider provider);
    Status(WINAPI* FreeKey)(Provider provider, Key key);
    Status(WINAPI* FreeBuffer)(PVOID buffer);
    Status(WINAPI* Encrypt)(Provider provider, Key key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output,
                            DWORD outputSize, DWORD* result, DWORD flags);
    Status(WINAPI* Decrypt)(Provider provider, Key key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output,
                            DWORD outputSize, DWORD* result, DWORD flags);
    Status(WINAPI* IsAlgSupported)(Provider provider, LPCWSTR algorithm, DWORD flags);
    Status(WINAPI* EnumAlgorithms)(Provider provider, DWORD operations, DWORD* count, NCryptAlgorithmName** list, DWORD flags);
    Status(WINAPI* EnumKeys)(Provider provider, LPCWSTR scope, NCryptKeyName** name, PVOID* state, DWORD flags);
    Status(WINAPI* ImportKey)(Provider provider, Key unwrapping, LPCWSTR type, NCryptBufferDesc* parameters, Key* key, PBYTE blob,
                              DWORD blobSize, DWORD flags);
    Status(WINAPI* ExportKey)(Provider provider, Key key, Key wrapping, LPCWSTR type, NCryptBufferDesc* parameters, PBYTE output,
                              DWORD outputSize, DWORD* result, DWORD flags);
    Status(WINAPI* SignHash)(Provider provider, Key key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature,
                             DWORD signatureSize, DWORD* result, DWORD flags);
    Status(WINAPI* VerifySignature)(Provider provider, Key key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature,
                                    DWORD signatureSize, DWORD flags);
    Status(WINAPI* PromptUser)(Provider provider, Key key, LPCWSTR operation, DWORD flags);
    Status(WINAPI* NotifyChangeKey)(Provider provider, HANDLE* event, DWORD flags);
    Status(WINAPI* SecretAgreement)(Provider provider, Key ours, Key theirs, Secret* secret, DWORD flags);
    Status(WINAPI* DeriveKey)(Provider provider, Secret secret, LPCWSTR function, NCryptBufferDesc* parameters, PBYTE output,
                              DWORD outputSize, DWORD* result, ULONG flags);
    Status(WINAPI* FreeSecret)(Provider provider, Secret secret);
};

static_assert(offsetof(KeyStorageFunctionTable, OpenProvider) == 8);
static_assert(sizeof(KeyStorageFunctionTable) == 8 + 26 * sizeof(void*));

using GetKeyStorageInterfaceFunction = SECURITY_STATUS(WINAPI*)(LPCWSTR providerName, KeyStorageFunctionTable** table,
                                                                DWORD flags);

} // namespace quelta
