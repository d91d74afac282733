// What is called, and what it may answer whatever befalls the token: a last error of CryptoAPI, a status of key storage.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>
#include <wincrypt.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace quelta::soak {

using Code = LONG;

// FALSE without a last error of its own; of an enumeration, that it came to its end without the key.
constexpr Code noCode = 0x20000001;

// What can stand against a call: each weather has some of it. Silence is the call's own, a wrong PIN its user's.
using Causes = unsigned;
constexpr Causes unplugged = 1, noAttempts = 2, clockOff = 4, userLeaves = 8, noSession = 16, turning = 32, silence = 64,
                 misled = 128;
constexpr Causes noPin = unplugged | noAttempts | clockOff | userLeaves;

// What the token does only with the right PIN or an open session; for the private keys, the clock opens none again.
constexpr Causes administration = unplugged | noAttempts, privateKey = administration | clockOff;

constexpr std::size_t mostRefusals = 3;

struct Refusal {
    Code code = 0;
    // Any of it explains the refusal.
    Causes by = 0;
};

struct Call {
    std::string_view name;
    Refusal refusals[mostRefusals]{};
    // With any of it the call can't be done.
    Causes never = 0;
};

// What imports a secret takes the cached PIN as it is, and another thread's prompt may just have emptied the cache. The token's
// own failures stand against what has a PIN already, cached or of an open session.
constexpr Call calls[] = {
    // Of a thread that has not called yet.
    {"no call"},
    {"CryptAcquireContext", {{NTE_TOKEN_KEYSET_STORAGE_FULL, unplugged}, {NTE_PROVIDER_DLL_FAIL, turning}}, unplugged},
    {"CryptReleaseContext"},
    {"CryptGetUserKey", {{NTE_NO_KEY, unplugged}}, unplugged},
    {"CryptDestroyKey"},
    {"CryptCreateHash", {{NTE_FAIL, unplugged}}, unplugged},
    {"CryptHashData", {{NTE_FAIL, unplugged}}, unplugged},
    {"CryptGetHashParam HP_HASHVAL", {{NTE_FAIL, unplugged}}, unplugged},
    {"CryptDestroyHash"},
    {"CryptSignHash", {{NTE_FAIL, noPin}, {NTE_NO_KEY, turning}, {NTE_PROVIDER_DLL_FAIL, noAttempts}}, privateKey},
    {"CryptVerifySignature", {{NTE_BAD_SIGNATURE, unplugged}, {NTE_BAD_HASH, unplugged}}, unplugged},
    {"CryptVerifySignature, damaged"},
    {"CryptEncrypt", {{NTE_FAIL, noPin}, {NTE_PROVIDER_DLL_FAIL, unplugged}}, unplugged},
    {"CryptDecrypt", {{NTE_FAIL, noPin}, {NTE_PROVIDER_DLL_FAIL, administration}}, privateKey},
    {"CryptDecrypt, AES", {{NTE_FAIL, noPin}, {NTE_PROVIDER_DLL_FAIL, unplugged}}, unplugged},
    {"CryptImportKey PUBLICKEYBLOB"},
    {"CryptImportKey PLAINTEXTKEYBLOB", {{NTE_BAD_TYPE, unplugged | noSession}}, administration},
    {"CryptImportKey SYMMETRICWRAPKEYBLOB", {{NTE_BAD_KEY, unplugged}, {NTE_BAD_TYPE, noSession}}, administration},
    {"CryptImportKey SIMPLEBLOB", {{noCode, unplugged | noSession}}, privateKey},
    {"CryptSetKeyParam KP_IV"},
    {"CryptExportKey", {{NTE_BAD_KEY, unplugged}}, unplugged},
    {"CryptGetKeyParam KP_CERTIFICATE", {{NTE_NOT_FOUND, unplugged}}, unplugged},
    {"CryptGetProvParam PP_CERTCHAIN", {{NTE_NO_KEY, unplugged}}, unplugged},
    {"CryptGetProvParam PP_ENUMCONTAINERS", {{noCode, unplugged}}},
    {"CryptGetProvParam PP_KEYSPEC", {{NTE_NO_KEY, unplugged}}, unplugged},
    {"CryptSetProvParam PIN", {{NTE_KEYSET_ENTRY_BAD, privateKey}}, privateKey},
    {"CryptSetProvParam PIN, wrong"},
    {"CryptGenRandom", {{NTE_PROVIDER_DLL_FAIL, unplugged}}, unplugged},
    {"CryptGenKey", {{NTE_FAIL, noPin}, {NTE_TOKEN_KEYSET_STORAGE_FULL, administration}}, administration},
    {"LoadLibrary"},
    {"FreeLibrary"},
    {"GetKeyStorageInterface"},
    {"OpenProvider", {{NTE_DEVICE_NOT_FOUND, unplugged}, {NTE_PROVIDER_DLL_FAIL, turning}}, unplugged},
    {"FreeProvider"},
    {"OpenKey", {{NTE_NO_KEY, unplugged}}, unplugged},
    {"FreeKey"},
    {"SignHash", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, privateKey},
    {"SignHash, silent", {{NTE_SILENT_CONTEXT, silence}, {NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, privateKey},
    {"SignHash, silent, with a PIN"},
    {"SignHash, silent, with a stale PIN"},
    {"SignHash, silent, without one"},
    {"VerifySignature", {{NTE_BAD_SIGNATURE, unplugged}}, unplugged},
    {"VerifySignature, damaged"},
    {"Encrypt", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, unplugged}}, unplugged},
    {"Decrypt", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, privateKey},
    {"Encrypt, silent", {{NTE_SILENT_CONTEXT, silence}, {NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, unplugged}}, unplugged},
    {"Decrypt, silent", {{NTE_SILENT_CONTEXT, silence}, {NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, privateKey},
    {"Decrypt, AES", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, unplugged}}, unplugged},
    {"ImportKey RSAPUBLICBLOB"},
    {"ImportKey KeyDataBlob", {{NTE_BAD_TYPE, unplugged | noSession}}, administration},
    {"ImportKey OpaqueKeyBlob", {{NTE_BAD_KEY, unplugged}, {NTE_BAD_TYPE, noSession}}, administration},
    {"ImportKey OpaqueTransport", {{NTE_BAD_DATA, unplugged | noSession}}, privateKey},
    {"ExportKey"},
    {"GetKeyProperty SmartCardKeyCertificate", {{NTE_NOT_FOUND, unplugged}}, unplugged},
    {"SetKeyProperty SmartCardKeyCertificate", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, administration},
    {"SetKeyProperty ChainingMode"},
    {"SetKeyProperty IV"},
    {"SetKeyProperty SmartCardPin", {{NTE_VALIDATION_FAILED, privateKey}}, privateKey},
    {"SetKeyProperty SmartCardPin, wrong"},
    {"EnumKeys", {{noCode, unplugged}}, unplugged},
    {"EnumAlgorithms"},
    {"SetProviderProperty SmartCardPin", {{NTE_VALIDATION_FAILED, privateKey}}, privateKey},
    {"SetProviderProperty SmartCardPin, wrong"},
    {"PromptUser", {{NTE_FAIL, noPin}}},
    {"CreatePersistedKey"},
    {"FinalizeKey", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, administration},
    {"DeleteKey", {{NTE_FAIL, noPin}, {NTE_INTERNAL_ERROR, administration}}, administration},
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
