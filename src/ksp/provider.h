// The record behind NCRYPT_PROV_HANDLE, owned by the handle: made by KSPOpenProvider, freed by KSPFreeProvider.
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
    // Passed to every call of the device library; never set.
    void* libraryContext = nullptr;
    bool isOpen = false;
    // "HWND Handle". The dialogs have no owner window all the same.
    std::uint64_t hwnd = 0;

    Token token() const { return {deviceId, libraryContext}; }
};

// Null for a null handle and for one that is not open.
KspProvider* providerOf(NCRYPT_PROV_HANDLE handle);

// The PIN to use; a refusal becomes NTE_FAIL. `cached` is the cached PIN, null if there is none: a caller that has acted on it
// hands it in.
std::expected<Pin, SECURITY_STATUS> kspEnsurePin(const KspProvider& provider,
                                                 Pin cached = tokenState().pinCache.pinIfValidated());

// "SmartCardPin" of a provider and of a key: an 8-bit text whatever its length argument says, so that of a wide PIN the token
// sees the first character only.
SECURITY_STATUS setPinProperty(const KspProvider& provider, const BYTE* input);

// The 64-bit value of "HWND Handle"; nothing if there are fewer than 8 bytes.
std::optional<std::uint64_t> windowHandleOf(ByteView input);

} // namespace quelta
