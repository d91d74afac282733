// The record behind NCRYPT_PROV_HANDLE. The handle owns the record: KSPOpenProvider makes it, KSPFreeProvider frees it.
#pragma once

#include "ksp/entry.h"
#include "token/pin_prompt.h"
#include "token/token.h"

#include <expected>
#include <optional>
#include <string>

namespace quelta {

struct KspProvider {
    std::string deviceId;
    // Passed to the device library. Always null.
    void* libraryContext = nullptr;
    bool isOpen = false;
    // The value of "HWND Handle". It is only stored: the dialogs have no owner window.
    std::uint64_t hwnd = 0;

    Token token() const { return {deviceId, libraryContext}; }
};

// Returns null for a null handle and for a provider that is not open.
KspProvider* providerOf(NCRYPT_PROV_HANDLE handle);

// Returns the PIN to use. A refusal becomes NTE_FAIL. `cached` is the cached PIN or null; a caller that has read the cache
// already passes it on.
std::expected<Pin, SECURITY_STATUS> kspEnsurePin(const KspProvider& provider,
                                                 Pin cached = tokenState().pinCache.pinIfValidated());

// Sets "SmartCardPin" of a provider or a key. The input is an 8-bit text, whatever its length argument says. So the token sees
// only the first character of a wide PIN.
SECURITY_STATUS setPinProperty(const KspProvider& provider, const BYTE* input);

// Returns the 64-bit value of "HWND Handle"; nullopt if there are fewer than 8 bytes.
std::optional<std::uint64_t> windowHandleOf(ByteView input);

} // namespace quelta
