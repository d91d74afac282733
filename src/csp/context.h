// The record behind HCRYPTPROV. The handle owns the record: CPAcquireContext makes it, CPReleaseContext frees it.
#pragma once

#include "csp/entry.h"
#include "token/pin_prompt.h"
#include "token/token.h"

#include <string>
#include <vector>

namespace quelta {

struct CspContext {
    // PP_CLIENT_HWND. The value is only stored: the dialogs have no owner window.
    void* ownerWindow = nullptr;
    std::string serialNumber;
    // Passed to the device library. Always null.
    void* libContext = nullptr;
    std::string containerName;
    bool valid = false;
    // The value of PP_KEYSET_TYPE.
    DWORD keysetType = 0;
    DWORD algorithmCursor = 0;
    DWORD containerCursor = 0;
    // The names of the token's key pairs when the context was acquired.
    std::vector<std::string> keyIdentifiers;

    Token token() const { return {serialNumber, libContext}; }
    // True if the context's container is this key pair. An empty container name matches any key pair.
    bool names(const QueltaKeyPair& pair) const;
};

// Returns null for a null handle and for a context that is not valid.
CspContext* contextOf(HCRYPTPROV handle);

// Returns the PIN to use. A refusal is logged and becomes NTE_FAIL.
Outcome<Pin> ensurePinValidated(const CspContext& context);

} // namespace quelta
