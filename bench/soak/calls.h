// What is called, and what it may answer whatever befalls the token: a last error of CryptoAPI, a status of key storage.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>
#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace quelta::soak {

using Code = LONG;

// FALSE without a last error of its own; of an enumeration, that it came to its end without the key.
constexpr Code noCode = 0x20000001;

// How much a caller can rely on: on nothing, on a user who gives the right PIN, on an open session that needs no PIN.
enum class Calm { none, byPin, signedOn, never };

constexpr std::size_t mostRefusals = 3;

struct Call {
    std::string_view name;
    std::array<Code, mostRefusals> refusals{};
    // From this calm on it is never refused.
    Calm from = Calm::byPin;
};

// What imports a secret takes the cached PIN as it is, and another thread's prompt may just have emptied the cache. A silent
// caller is refused without a cached PIN, an open session or not.
constexpr Call calls[] = {
    // Of a thread that has not called yet.
    {"no call"},
    {"CryptAcquireContext", {NTE_TOKEN_KEYSET_STORAGE_FULL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptReleaseContext"},
    {"CryptGetUserKey", {NTE_NO_KEY}},
    {"CryptDestroyKey"},
    {"CryptCreateHash", {NTE_FAIL}},
    {"CryptHashData", {NTE_FAIL}},
    {"CryptGetHashParam HP_HASHVAL", {NTE_FAIL}},
    {"CryptDestroyHash"},
    {"CryptSignHash", {NTE_FAIL, NTE_NO_KEY, NTE_PROVIDER_DLL_FAIL}},
    {"CryptVerifySignature", {NTE_BAD_SIGNATURE, NTE_BAD_HASH}},
    {"CryptVerifySignature, damaged"},
    {"CryptEncrypt", {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptDecrypt", {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptDecrypt, AES", {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptImportKey PUBLICKEYBLOB"},
    {"CryptImportKey PLAINTEXTKEYBLOB", {NTE_BAD_TYPE}, Calm::signedOn},
    {"CryptImportKey SYMMETRICWRAPKEYBLOB", {NTE_BAD_KEY, NTE_BAD_TYPE}, Calm::signedOn},
    {"CryptImportKey SIMPLEBLOB", {noCode}, Calm::signedOn},
    {"CryptSetKeyParam KP_IV"},
    {"CryptExportKey", {NTE_BAD_KEY}},
    {"CryptGetKeyParam KP_CERTIFICATE", {NTE_NOT_FOUND}},
    {"CryptGetProvParam PP_CERTCHAIN", {NTE_NO_KEY}},
    {"CryptGetProvParam PP_ENUMCONTAINERS", {noCode}},
    {"CryptGetProvParam PP_KEYSPEC", {NTE_NO_KEY}},
    {"CryptSetProvParam PIN", {NTE_KEYSET_ENTRY_BAD}},
    {"CryptSetProvParam PIN, wrong"},
    {"CryptGenRandom", {NTE_PROVIDER_DLL_FAIL}},
    {"CryptGenKey", {NTE_FAIL, NTE_TOKEN_KEYSET_STORAGE_FULL}},
    {"LoadLibrary"},
    {"FreeLibrary"},
    {"GetKeyStorageInterface"},
    {"OpenProvider", {NTE_DEVICE_NOT_FOUND, NTE_PROVIDER_DLL_FAIL}},
    {"FreeProvider"},
    {"OpenKey", {NTE_NO_KEY}},
    {"FreeKey"},
    {"SignHash", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"SignHash, silent", {NTE_SILENT_CONTEXT, NTE_FAIL, NTE_INTERNAL_ERROR}, Calm::never},
    {"VerifySignature", {NTE_BAD_SIGNATURE}},
    {"VerifySignature, damaged"},
    {"Encrypt", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"Decrypt", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"Encrypt, silent", {NTE_SILENT_CONTEXT, NTE_FAIL, NTE_INTERNAL_ERROR}, Calm::never},
    {"Decrypt, silent", {NTE_SILENT_CONTEXT, NTE_FAIL, NTE_INTERNAL_ERROR}, Calm::never},
    {"Decrypt, AES", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"ImportKey RSAPUBLICBLOB"},
    {"ImportKey KeyDataBlob", {NTE_BAD_TYPE}, Calm::signedOn},
    {"ImportKey OpaqueKeyBlob", {NTE_BAD_KEY, NTE_BAD_TYPE}, Calm::signedOn},
    {"ImportKey OpaqueTransport", {NTE_BAD_DATA}, Calm::signedOn},
    {"ExportKey"},
    {"GetKeyProperty SmartCardKeyCertificate", {NTE_NOT_FOUND}},
    {"SetKeyProperty SmartCardKeyCertificate", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"SetKeyProperty ChainingMode"},
    {"SetKeyProperty IV"},
    {"SetKeyProperty SmartCardPin", {NTE_VALIDATION_FAILED}},
    {"SetKeyProperty SmartCardPin, wrong"},
    {"EnumKeys", {noCode}},
    {"EnumAlgorithms"},
    {"SetProviderProperty SmartCardPin", {NTE_VALIDATION_FAILED}},
    {"SetProviderProperty SmartCardPin, wrong"},
    {"PromptUser", {NTE_FAIL}},
    {"CreatePersistedKey"},
    {"FinalizeKey", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"DeleteKey", {NTE_FAIL, NTE_INTERNAL_ERROR}},
    // The soak's own, for the watchdog.
    {"changing the token"},
};

// The row of a name; one that the table lacks does not compile.
struct CallName {
    int row;
    consteval CallName(const char* name)
        : row(static_cast<int>(std::ranges::find(calls, std::string_view(name), &Call::name) - std::begin(calls)))
    {
        if (row == std::ssize(calls)) throw "no such call";
    }
};

} // namespace quelta::soak
