#include "base/table.h"
#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "token/handles.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>
#include <optional>

namespace quelta {

KeyContext* keyOf(HCRYPTKEY handle)
{
    return recordOf<KeyContext>(handle);
}

namespace {

constexpr DWORD defaultBits = 2048;

// Returns the algorithm to report for this key pair; nullopt if the key spec excludes the pair. After an application has asked
// for the container's name, only the pair's usage decides, not the key spec: signing comes before key exchange.
std::optional<ALG_ID> algorithmForKeySpec(const QueltaKeyPair& pair, DWORD keySpec)
{
    const bool anySpec = tokenState().containerSelectedFlag != 0;
    if ((keySpec == AT_SIGNATURE || anySpec) && canSign(pair.usage)) {
        logDebug("Sign key found");
        return isEllipticCurve(pair.algorithm) ? algorithmEcSign : ALG_ID{CALG_RSA_SIGN};
    }
    if ((keySpec == AT_KEYEXCHANGE || anySpec) && canExchangeKeys(pair.usage)) {
        logDebug("Encryption key found");
        return ALG_ID{CALG_RSA_KEYX};
    }
    return std::nullopt;
}

std::unique_ptr<KeyContext> findUserKey(const CspContext& context, const std::vector<QueltaKeyPair>& pairs, DWORD keySpec)
{
    for (const auto& pair : pairs) {
        if (!context.names(pair)) continue;
        const auto algorithm = algorithmForKeySpec(pair, keySpec);
        if (!algorithm) continue;
        auto key = std::make_unique<KeyContext>();
        copyIdentity(pair, *key);
        key->algorithm = *algorithm;
        key->keyUsage = pair.usage;
        key->bitLength = bitsOfAlgorithm(pair.algorithm);
        return key;
    }
    return nullptr;
}

std::optional<std::uint32_t> usageToGenerate(ALG_ID algorithm)
{
    if (algorithm == CALG_RSA_SIGN) {
        logDebug("rsa sign");
        return usageSigning;
    }
    if (algorithm == CALG_RSA_KEYX) {
        logDebug("key exhange");
        return usageKeyExchange;
    }
    logError("Unsupported algorithm", algorithm);
    return std::nullopt;
}

// The size is only recorded. The token does not get it and chooses the key's size.
void fillGenerated(KeyContext& key, const QueltaKeyPair& made, ALG_ID algorithm, DWORD bits)
{
    copyIdentity(made, key);
    key.keyPairFlag = 0;
    key.keyUsage = made.usage;
    key.algorithm = algorithm;
    key.bitLength = bits;
}

Answer getPermissions(const CspContext&, const KeyContext& key, Output out)
{
    const DWORD permissions = canExchangeKeys(key.keyUsage) ? CRYPT_DECRYPT : 0;
    return putKeyParameter(out, bytesOf(permissions), "CPGetKeyParam - Output buffer length for permission not enough : ");
}

Answer getAlgorithm(const CspContext&, const KeyContext& key, Output out)
{
    if (out.isQuery() || out.room == 0) {
        logDebug("CPGetKeyParam - input for alg id is null");
    } else if (out.holds(sizeof key.algorithm)) {
        logDebug("CPGetKeyParam - copying alg id : ", key.algorithm);
    }
    return putKeyParameter(out, bytesOf(key.algorithm), "CPGetKeyParam - Output buffer length for alg not enough : ");
}

Answer getBitLength(const CspContext&, const KeyContext& key, Output out)
{
    return putKeyParameter(out, bytesOf(key.bitLength), "CPGetKeyParam - Output buffer length for blocklen not enough : ");
}

Answer getCertificate(const CspContext& context, const KeyContext& key, Output out)
{
    context.token().initDevice(true);
    const auto certificates = context.token().certificates();
    const auto found = std::ranges::find_if(certificates, [&](const auto& record) { return belongsTo(record, key); });
    if (found == certificates.end()) {
        logError("CPGetKeyParam - Certificate not found");
        return fail(NTE_NOT_FOUND);
    }
    return putKeyParameter(out, certificateOf(*found), "CPGetKeyParam - Output buffer length for certificate not enough : ");
}

struct KeyParameter {
    DWORD id;
    Answer (*answer)(const CspContext& context, const KeyContext& key, Output out);
};

// clang-format off
constexpr KeyParameter keyParameters[] = {
    {KP_PERMISSIONS, getPermissions},
    {KP_ALGID, getAlgorithm},
    {KP_BLOCKLEN, getBitLength},
    {KP_KEYLEN, getBitLength},
    {KP_CERTIFICATE, getCertificate},
};
// clang-format on

// Returns the IV length of the key's algorithm; 0 if the key takes no IV. AES-128 gives 0 too.
std::size_t ivLengthOf(const KeyContext& key)
{
    if (key.algorithm == encryptionAes256) return 16;
    return key.algorithm == encryptionTripleDes ? 8 : 0;
}

Answer setIv(const KeyContext& key, const BYTE* data)
{
    const std::size_t length = ivLengthOf(key);
    if (length == 0) return done();
    if (!data) return fail(ERROR_INVALID_PARAMETER);
    tokenState().sharedIv.set({data, length});
    return done();
}

Answer acceptOtherParameter(const BYTE* data)
{
    logDebug("Set key param default input value : ", data ? valueOf<DWORD>(data) : 0);
    return done();
}

} // namespace

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey)
{
    return entryPoint("CPGetUserKey", [&]() -> Answer {
        if (!phUserKey || !hProv) return fail(NTE_BAD_KEY);
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        logDebug("CPGetUserKey -> dwKeySpec : ", dwKeySpec);
        const auto pairs = context->token().keyPairs();
        if (pairs.empty()) return fail(NTE_NO_KEY);
        logDebug("CPGetUserKey - Container name : ", context->containerName);
        auto key = findUserKey(*context, pairs, dwKeySpec);
        if (!key) {
            logDebug("Requested key in Get user key not found");
            return fail(NTE_BAD_KEY);
        }
        logDebug("CPGetUserKey - return key algorithm : ", key->algorithm);
        *phUserKey = handOut(std::move(key));
        return done();
    });
}

BOOL WINAPI CPGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey)
{
    return entryPoint("CPGenKey", [&]() -> Answer {
        if (!phKey) return fail(ERROR_INVALID_PARAMETER);
        *phKey = 0;
        const auto* context = contextOf(hProv);
        if (!context) {
            logDebug("Invalid CSP context");
            return fail(NTE_BAD_UID);
        }
        const auto usage = usageToGenerate(Algid);
        if (!usage) return fail(NTE_BAD_ALGID);
        const DWORD requestedBits = HIWORD(dwFlags);
        const DWORD bits = requestedBits != 0 ? requestedBits : defaultBits;
        auto key = makeRecordOrNull<KeyContext>();
        if (!key) return fail(ERROR_NOT_ENOUGH_MEMORY);
        const auto pin = ensurePinValidated(*context);
        if (!pin) return pin.error();
        QueltaKeyPair pair{};
        pair.usage = *usage;
        if (const int result = context->token().generateKeyPair(**pin, pair)) {
            logError("RSA Keypair Generation Failed, code=", result);
            return fail(NTE_TOKEN_KEYSET_STORAGE_FULL);
        }
        fillGenerated(*key, pair, Algid, bits);
        *phKey = handOut(std::move(key));
        logDebug("Key generated successfully, Algid=", Algid, " bits=", bits);
        return done();
    });
}

BOOL WINAPI CPGetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD)
{
    return entryPoint("CPGetKeyParam", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        const auto* key = keyOf(hKey);
        if (!key) return fail(NTE_BAD_KEY);
        logDebug("CPGetKeyParam - dwparam : ", dwParam);
        logDebug("CPGetKeyParam - key id : ", hex(key->keyId));
        const auto* parameter = findRow(keyParameters, &KeyParameter::id, dwParam);
        if (!parameter) {
            logError("CPGetKeyParam - unsupported input : ", dwParam);
            return fail(NTE_BAD_TYPE);
        }
        if (!pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        return parameter->answer(*context, *key, {pbData, pdwDataLen});
    });
}

BOOL WINAPI CPSetKeyParam(HCRYPTPROV hProv, HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags)
{
    return entryPoint("CPSetKeyParam", [&]() -> Answer {
        if (!contextOf(hProv)) return fail(NTE_BAD_UID);
        const auto* key = keyOf(hKey);
        if (!key) return fail(NTE_BAD_KEY);
        logDebug("Set key param key id : ", hex(key->keyId));
        logDebug("Set key param  dwParam : ", dwParam);
        logDebug("Set key param  dwFlags : ", dwFlags);
        logDebug("Set key param key algo : ", key->algorithm);
        return dwParam == KP_IV ? setIv(*key, pbData) : acceptOtherParameter(pbData);
    });
}

BOOL WINAPI CPDestroyKey(HCRYPTPROV hProv, HCRYPTKEY hKey)
{
    return entryPoint("CPDestroyKey", [&]() -> Answer {
        if (!contextOf(hProv)) return fail(NTE_BAD_UID);
        if (!keyOf(hKey)) return fail(NTE_BAD_KEY);
        takeBack<KeyContext>(hKey).reset();
        return done();
    });
}
