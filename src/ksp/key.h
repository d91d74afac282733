// The record behind NCRYPT_KEY_HANDLE. The handle owns the record; KSPFreeKey frees it. It refers to no provider: every operation
// gets the provider as an argument.
#pragma once

#include "ksp/entry.h"
#include "token/token_key.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quelta {

enum class ChainingMode : std::uint8_t { cbc = 0, ecb = 1 };

// `algorithm` is the token's algorithm code, or 0 for an RSA key whose size is not yet chosen. For a symmetric key it is the
// encryption-type code.
struct KspKey : TokenKey {
    // The name under which the caller opened or created the key. The token does not get it.
    std::wstring keyName;
    // False from KSPCreatePersistedKey until KSPFinalizeKey.
    bool finalized = false;
    ChainingMode chainingMode = ChainingMode::cbc;

    bool isSymmetric() const { return !symmetricKey->empty(); }
    // Returns the key's name on the token: its identifier in hexadecimal.
    std::wstring tokenName() const;
};

// Returns null for a null handle.
KspKey* kspKeyOf(NCRYPT_KEY_HANDLE handle);

// Returns a finalized key that is otherwise empty.
std::unique_ptr<KspKey> newFinalizedKey();

std::wstring wideKeyName(const QueltaKeyPair& pair);

std::wstring_view algorithmNameOf(std::uint32_t algorithm);
std::wstring_view algorithmGroupOf(std::uint32_t algorithm);

// Returns the first key pair whose identifier or label is `name`; else the first whose usage fits the legacy key spec; else the
// only key pair, if there is just one; else null.
const QueltaKeyPair* chooseKey(const std::vector<QueltaKeyPair>& pairs, std::string_view name, DWORD legacyKeySpec);

} // namespace quelta
