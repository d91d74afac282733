#include "base/hex.h"
#include "base/table.h"
#include "base/text.h"
#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/provider.h"
#include "token/handles.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>

namespace quelta {

namespace {

struct AlgorithmName {
    std::uint32_t algorithm;
    std::wstring_view name;
};

constexpr AlgorithmName curveNames[] = {
    {algorithmP256, L"ECDSA_P256"},
    {algorithmP384, L"ECDSA_P384"},
    {algorithmP521, L"ECDSA_P521"},
};

constexpr std::uint32_t defaultBits = 2048;

struct Generation {
    std::uint32_t algorithm;
    std::uint32_t bits;
};

// The recorded size is the one that the caller set, even if the token has no such RSA key and makes one of 2048 bits.
Generation generationOf(const KspKey& key)
{
    if (key.algorithm != 0) return {key.algorithm, key.bitLength};
    return {rsaAlgorithmOfBits(key.bitLength).value_or(algorithmRsa2048), key.bitLength != 0 ? key.bitLength : defaultBits};
}

void finish(KspKey& key, const QueltaKeyPair& made, const Generation& generation)
{
    copyIdentity(made, key);
    key.algorithm = generation.algorithm;
    key.bitLength = generation.bits;
    key.finalized = true;
}

const QueltaKeyPair* findOnToken(const std::vector<QueltaKeyPair>& pairs, const std::string& name)
{
    for (const auto& pair : pairs) {
        const std::string available = keyName(pair);
        logDebug("KSP: Available key: ", available);
        if (available == name) return &pair;
    }
    return nullptr;
}

std::unique_ptr<KspKey> openedKey(const QueltaKeyPair& pair, std::wstring_view name)
{
    auto key = newFinalizedKey();
    copyIdentity(pair, *key);
    key->algorithm = pair.algorithm;
    key->keyUsage = pair.usage;
    key->bitLength = bitsOfAlgorithm(pair.algorithm);
    key->keyName = name;
    return key;
}

// Returns an unfinished key of this algorithm; null if the token cannot make such a key.
std::unique_ptr<KspKey> unfinishedKey(std::wstring_view algorithmId, DWORD legacyKeySpec)
{
    auto key = std::make_unique<KspKey>();
    if (algorithmId == L"RSA") {
        key->keyUsage = legacyKeySpec == AT_KEYEXCHANGE ? usageKeyExchange : usageSigning;
        return key;
    }
    const auto* curve = findRow(curveNames, &AlgorithmName::name, algorithmId);
    if (!curve) return nullptr;
    key->algorithm = curve->algorithm;
    key->bitLength = bitsOfAlgorithm(curve->algorithm);
    key->keyUsage = usageSigning;
    return key;
}

} // namespace

std::wstring KspKey::tokenName() const
{
    return toWide(toHex(keyId));
}

KspKey* kspKeyOf(NCRYPT_KEY_HANDLE handle)
{
    return recordOf<KspKey>(handle);
}

std::unique_ptr<KspKey> newFinalizedKey()
{
    auto key = std::make_unique<KspKey>();
    key->finalized = true;
    return key;
}

std::wstring wideKeyName(const QueltaKeyPair& pair)
{
    return toWide(keyName(pair));
}

std::wstring_view algorithmNameOf(std::uint32_t algorithm)
{
    const auto* curve = findRow(curveNames, &AlgorithmName::algorithm, algorithm);
    return curve ? curve->name : L"RSA";
}

std::wstring_view algorithmGroupOf(std::uint32_t algorithm)
{
    return isEllipticCurve(algorithm) ? L"ECDSA" : L"RSA";
}

// The first search always succeeds for KSPOpenKey, which has already refused a name that no key pair has. The rest keeps the
// rule complete.
const QueltaKeyPair* chooseKey(const std::vector<QueltaKeyPair>& pairs, std::string_view name, DWORD legacyKeySpec)
{
    const auto first = [&](auto&& fits) -> const QueltaKeyPair* {
        const auto found = std::ranges::find_if(pairs, fits);
        return found == pairs.end() ? nullptr : &*found;
    };
    if (const auto* named = first([&](const auto& pair) { return keyName(pair) == name || labelOf(pair) == name; })) return named;
    const QueltaKeyPair* fitting = nullptr;
    if (legacyKeySpec == AT_SIGNATURE) fitting = first([](const auto& pair) { return canSign(pair.usage); });
    if (legacyKeySpec == AT_KEYEXCHANGE) fitting = first([](const auto& pair) { return canExchangeKeys(pair.usage); });
    if (fitting) return fitting;
    return pairs.size() == 1 ? &pairs.front() : nullptr;
}

SECURITY_STATUS WINAPI KSPOpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                  DWORD dwLegacyKeySpec, DWORD)
{
    return slot("KSPOpenKey", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        if (!phKey) return NTE_INVALID_PARAMETER;
        const std::wstring_view wideName = pszKeyName ? pszKeyName : L"";
        const std::string name = toNarrow(wideName);
        logDebug("KSP: Opening key: ", name);
        const auto pairs = provider->token().keyPairs();
        if (pairs.empty()) {
            logError("KSP: No keys found on token");
            return NTE_NO_KEY;
        }
        if (!findOnToken(pairs, name)) {
            logError("KSP: Input key not found on token: ", name);
            return NTE_NO_KEY;
        }
        logDebug("KSP: Key match found, proceeding...");
        const auto* pair = chooseKey(pairs, name, dwLegacyKeySpec);
        if (!pair) {
            logError("KSP: Key not found: ", name);
            return NTE_NO_KEY;
        }
        auto key = openedKey(*pair, wideName);
        const std::uint32_t algorithm = key->algorithm;
        const std::uint32_t bits = key->bitLength;
        *phKey = handOut(std::move(key));
        logDebug("KSP: Key opened, algorithm=", algorithm, " bits=", bits);
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszAlgId,
                                             LPCWSTR pszKeyName, DWORD dwLegacyKeySpec, DWORD)
{
    return slot("KSPCreatePersistedKey", [&]() -> SECURITY_STATUS {
        if (!providerOf(hProvider)) return NTE_INVALID_HANDLE;
        if (!phKey || !pszAlgId) return NTE_INVALID_PARAMETER;
        auto key = unfinishedKey(pszAlgId, dwLegacyKeySpec);
        if (!key) {
            logError("KSP: Unsupported algorithm for key generation");
            return NTE_NOT_SUPPORTED;
        }
        if (pszKeyName) key->keyName = pszKeyName;
        *phKey = handOut(std::move(key));
        logDebug("KSP: Key object created, waiting for FinalizeKey");
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPFinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD)
{
    return slot("KSPFinalizeKey", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        auto* key = kspKeyOf(hKey);
        if (!provider || !key) return NTE_INVALID_HANDLE;
        if (key->finalized) return statusDone;
        const auto pin = kspEnsurePin(*provider);
        if (!pin) return pin.error();
        const Generation generation = generationOf(*key);
        QueltaKeyPair pair{};
        pair.usage = key->keyUsage;
        pair.algorithm = generation.algorithm;
        logDebug("KSP: FinalizeKey - generating key, algorithm=", generation.algorithm, " bitSize=", generation.bits);
        if (const int result = provider->token().generateKeyPair(**pin, pair)) {
            logError("KSP: Key generation failed: ", result);
            return NTE_INTERNAL_ERROR;
        }
        finish(*key, pair, generation);
        logDebug("KSP: Key finalized successfully");
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPDeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD)
{
    return slot("KSPDeleteKey", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        auto* key = kspKeyOf(hKey);
        if (!provider || !key) return NTE_INVALID_HANDLE;
        const auto pin = kspEnsurePin(*provider);
        if (!pin) return pin.error();
        if (const int result = provider->token().deleteKeyPair(key->keyId, **pin, key->keyPairFlag != 0)) {
            logError("KSP: Delete key failed: ", result);
            return NTE_INTERNAL_ERROR;
        }
        key->keyName.clear();
        logDebug("KSP: Key deleted successfully");
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPFreeKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE hKey)
{
    return slot("KSPFreeKey", [&]() -> SECURITY_STATUS {
        takeBack<KspKey>(hKey).reset();
        return statusDone;
    });
}

} // namespace quelta
