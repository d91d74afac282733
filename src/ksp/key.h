// The record behind NCRYPT_KEY_HANDLE, owned by the handle and freed by KSPFreeKey. It refers to no provider: every operation is
// given one.
#pragma once

#include "ksp/entry.h"
#include "token/token_key.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quelta {

enum class ChainingMode : std::uint8_t { cbc = 0, ecb = 1 };

// `algorithm` is the token's algorithm code (0: an RSA key whose size is not yet chosen), or the encryption-type code of a
// symmetric key.
struct KspKey : TokenKey {
    // Under which the caller opened or made the key; the token is not told.
    std::wstring keyName;
    // False: made, and waiting for KSPFinalizeKey.
    bool finalized = false;
    ChainingMode chainingMode = ChainingMode::cbc;

    bool isSymmetric() const { return !symmetricKey->empty(); }
    // The name on the token: its identifier in hexadecimal.
    std::wstring tokenName() const;
};

// Null for a null handle.
KspKey* kspKeyOf(NCRYPT_KEY_HANDLE handle);

// A finalized key without identity yet.
std::unique_ptr<KspKey> newFinalizedKey();

std::wstring wideKeyName(const QueltaKeyPair& pair);

std::wstring_view algorithmNameOf(std::uint32_t algorithm);
std::wstring_view algorithmGroupOf(std::uint32_t algorithm);

// The key pair that a name means: the first of that identifier or that label, in the token's order; else, by the legacy key
// spec, the first that can do it; else the only one there is. Null if there is none.
const QueltaKeyPair* chooseKey(const std::vector<QueltaKeyPair>& pairs, std::string_view name, DWORD legacyKeySpec);

} // namespace quelta
