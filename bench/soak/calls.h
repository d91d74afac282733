// The calls that the soak makes, and the answers that each may give.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>
#include <wincrypt.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace quelta::soak {

// A last error of CryptoAPI or a status of key storage; 0 if the call was done.
using Code = LONG;

// Stands for FALSE without a last error, and for an enumeration that lacks a key.
constexpr Code noCode = 0x20000001;

// A state of the token offers one of these; each includes those before it. `pin` is a user who knows the PIN, `session` an open
// single sign-on. No state offers `more`.
enum class Needs { nothing, token, pin, session, more };
using enum Needs;

struct Call {
    std::string_view name;
    // If less than `least` is offered, the call must be refused; if `enough` is offered, it must be done.
    Needs least, enough;
    // The codes with which the call may be refused.
    Code refusals[4];
};

// An import of a secret uses the cached PIN, and asks no user.
constexpr Call calls[] = {
    {"CryptAcquireContext", token, token, {NTE_TOKEN_KEYSET_STORAGE_FULL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptGetUserKey", token, token, {NTE_NO_KEY}},
    {"CryptSignHash", pin, pin, {NTE_FAIL, NTE_NO_KEY, NTE_PROVIDER_DLL_FAIL}},
    {"CryptVerifySignature", token, token, {NTE_BAD_SIGNATURE, NTE_BAD_HASH, NTE_FAIL}},
    {"CryptVerifySignature, damaged", more, more, {NTE_BAD_SIGNATURE, NTE_BAD_HASH, NTE_FAIL}},
    {"CryptEncrypt", token, pin, {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptDecrypt", pin, pin, {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptDecrypt, AES", token, pin, {NTE_FAIL, NTE_PROVIDER_DLL_FAIL}},
    {"CryptImportKey PLAINTEXTKEYBLOB", pin, session, {NTE_BAD_TYPE}},
    {"CryptImportKey SYMMETRICWRAPKEYBLOB", pin, session, {NTE_BAD_KEY, NTE_BAD_TYPE}},
    {"CryptImportKey SIMPLEBLOB", pin, session, {noCode}},
    {"CryptGetKeyParam KP_CERTIFICATE", token, token, {NTE_NOT_FOUND}},
    {"CryptGetProvParam PP_CERTCHAIN", token, token, {NTE_NO_KEY}},
    {"CryptGetProvParam PP_ENUMCONTAINERS", nothing, token, {noCode}},
    {"CryptSetProvParam PP_SIGNATURE_PIN", pin, pin, {NTE_KEYSET_ENTRY_BAD}},
    {"CryptGenKey", pin, pin, {NTE_FAIL, NTE_TOKEN_KEYSET_STORAGE_FULL}},
    {"OpenProvider", token, token, {NTE_DEVICE_NOT_FOUND, NTE_PROVIDER_DLL_FAIL}},
    {"OpenKey", token, token, {NTE_NO_KEY}},
    {"SignHash", pin, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"SignHash, silent", pin, more, {NTE_FAIL, NTE_INTERNAL_ERROR, NTE_SILENT_CONTEXT}},
    {"VerifySignature", token, token, {NTE_BAD_SIGNATURE}},
    {"VerifySignature, damaged", more, more, {NTE_BAD_SIGNATURE}},
    {"Encrypt", token, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"Decrypt", pin, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"Decrypt, AES", token, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"ImportKey KeyDataBlob", pin, session, {NTE_BAD_TYPE}},
    {"ImportKey OpaqueKeyBlob", pin, session, {NTE_BAD_KEY, NTE_BAD_TYPE}},
    {"ImportKey OpaqueTransport", pin, session, {NTE_BAD_DATA}},
    {"ExportKey", nothing, nothing, {}},
    {"GetKeyProperty SmartCardKeyCertificate", token, token, {NTE_NOT_FOUND}},
    {"EnumKeys", token, token, {noCode}},
    {"SetProviderProperty SmartCardPin", pin, pin, {NTE_VALIDATION_FAILED}},
    {"PromptUser", nothing, pin, {NTE_FAIL}},
    {"CreatePersistedKey", nothing, nothing, {}},
    {"FinalizeKey", pin, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"DeleteKey", pin, pin, {NTE_FAIL, NTE_INTERNAL_ERROR}},
    {"FreeLibrary", nothing, nothing, {}},
};

// The row with this name. A name that the table lacks does not compile.
struct CallName {
    std::size_t row;
    consteval CallName(const char* name)
        : row(static_cast<std::size_t>(std::ranges::find(calls, std::string_view(name), &Call::name) - std::begin(calls)))
    {
        if (row == std::size(calls)) throw "no such call";
    }
};

} // namespace quelta::soak
