// The record behind HCRYPTPROV, owned by the handle: made by CPAcquireContext, freed by CPReleaseContext.
#pragma once

#include "csp/entry.h"
#include "token/pin_prompt.h"
#include "token/token.h"

#include <string>
#include <vector>

namespace quelta {

struct CspContext {
    // PP_CLIENT_HWND. The dialogs have no owner window all the same.
    void* ownerWindow = nullptr;
    std::string serialNumber;
    // Passed to every call of the device library; never set.
    void* libContext = nullptr;
    std::string containerName;
    bool valid = false;
    // PP_KEYSET_TYPE.
    DWORD keysetType = 0;
    DWORD algorithmCursor = 0;
    DWORD containerCursor = 0;
    // The names of the token's key pairs when the context was acquired.
    std::vector<std::string> keyIdentifiers;

    Token token() const { return {serialNumber, libContext}; }
    // An empty container name stands for any key pair.
    bool names(const QueltaKeyPair& pair) const;
};

// Null for a null handle and for one whose acquisition did not succeed.
CspContext* contextOf(HCRYPTPROV handle);

// The PIN to use; a refusal is logged and becomes NTE_FAIL.
Outcome<Pin> ensurePinValidated(const CspContext& context);

} // namespace quelta
