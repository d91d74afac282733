// The function table of a key storage provider, which some editions of the system's headers lack: after the published layout, two
// 16-bit version fields, padding to the pointer, then the slots of version 1.0.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>

#include <cstddef>

namespace quelta {

struct KeyStorageTable {
    USHORT majorVersion;
    USHORT minorVersion;

    SECURITY_STATUS(WINAPI* openProvider)(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags);
    SECURITY_STATUS(WINAPI* openKey)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* key, LPCWSTR name, DWORD legacyKeySpec, DWORD flags);
    SECURITY_STATUS(WINAPI* createPersistedKey)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* key, LPCWSTR algorithm, LPCWSTR name, DWORD legacyKeySpec, DWORD flags);
    SECURITY_STATUS(WINAPI* getProviderProperty)
    (NCRYPT_PROV_HANDLE provider, LPCWSTR property, PBYTE output, DWORD outputSize, DWORD* result, DWORD flags);
    SECURITY_STATUS(WINAPI* getKeyProperty)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, LPCWSTR property, PBYTE output, DWORD outputSize, DWORD* result,
     DWORD flags);
    SECURITY_STATUS(WINAPI* setProviderProperty)
    (NCRYPT_PROV_HANDLE provider, LPCWSTR property, PBYTE input, DWORD inputSize, DWORD flags);
    SECURITY_STATUS(WINAPI* setKeyProperty)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, LPCWSTR property, PBYTE input, DWORD inputSize, DWORD flags);
    SECURITY_STATUS(WINAPI* finalizeKey)(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, DWORD flags);
    SECURITY_STATUS(WINAPI* deleteKey)(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, DWORD flags);
    SECURITY_STATUS(WINAPI* freeProvider)(NCRYPT_PROV_HANDLE provider);
    SECURITY_STATUS(WINAPI* freeKey)(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key);
    SECURITY_STATUS(WINAPI* freeBuffer)(PVOID buffer);
    SECURITY_STATUS(WINAPI* encrypt)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output,
     DWORD outputSize, DWORD* result, DWORD flags);
    SECURITY_STATUS(WINAPI* decrypt)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output,
     DWORD outputSize, DWORD* result, DWORD flags);
    SECURITY_STATUS(WINAPI* isAlgSupported)(NCRYPT_PROV_HANDLE provider, LPCWSTR algorithm, DWORD flags);
    SECURITY_STATUS(WINAPI* enumAlgorithms)
    (NCRYPT_PROV_HANDLE provider, DWORD operations, DWORD* count, NCryptAlgorithmName** list, DWORD flags);
    SECURITY_STATUS(WINAPI* enumKeys)
    (NCRYPT_PROV_HANDLE provider, LPCWSTR scope, NCryptKeyName** name, PVOID* state, DWORD flags);
    // The slots from here on that this tool never calls are kept as bare pointers, in their places.
    void (*importKey)();
    void (*exportKey)();
    SECURITY_STATUS(WINAPI* signHash)
    (NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature,
     DWORD signatureSize, DWORD* result, DWORD flags);
    void (*verifySignature)();
    void (*promptUser)();
    void (*notifyChangeKey)();
    void (*secretAgreement)();
    void (*deriveKey)();
    void (*freeSecret)();
};

static_assert(offsetof(KeyStorageTable, openProvider) == sizeof(void*));
static_assert(sizeof(KeyStorageTable) == 27 * sizeof(void*));

} // namespace quelta
