#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/hash_context.h"
#include "csp/key_context.h"
#include "encoding/rsa_public_key.h"
#include "token/expired_session.h"
#include "token/key_algorithms.h"
#include "token/record_fields.h"

#include <algorithm>

namespace quelta {

namespace {

void choose(const QueltaKeyPair& pair, HashContext& hash)
{
    hash.keyId = std::to_array(pair.keyId);
    hash.mechanism = static_cast<std::int32_t>(pair.algorithm);
}

// If the container's own key cannot sign, the token's last key pair that can sign is used instead.
void chooseLastEligible(const std::vector<QueltaKeyPair>& pairs, HashContext& hash)
{
    for (const auto& pair : pairs) {
        if (canSign(pair.usage)) choose(pair, hash);
    }
}

bool chooseSigningKey(const CspContext& context, HashContext& hash)
{
    const auto pairs = context.token().keyPairs();
    bool matched = false;
    for (const auto& pair : pairs) {
        if (!context.names(pair)) continue;
        matched = true;
        if (!canSign(pair.usage)) continue;
        choose(pair, hash);
        return true;
    }
    if (matched) chooseLastEligible(pairs, hash);
    return hash.keyId.has_value();
}

DWORD signatureLengthOf(const HashContext& hash)
{
    switch (hash.mechanism) {
    case algorithmRsa3072: return 384;
    case algorithmRsa4096: return 512;
    default: return 256;
    }
}

Answer signInto(const CspContext& context, const HashContext& hash, DWORD flags, std::span<BYTE> room, DWORD& signatureLength)
{
    auto pin = ensurePinValidated(context);
    if (!pin) return pin.error();
    logDebug("CPSignHash dwFlags : ", flags);
    logDebug("CPSignHash hashAlgorithm : ", hash.hashAlgorithm);
    logDebug("CPSignHash key mechanism : ", hash.mechanism);
    const auto sign = [&](const PinText& text) { return context.token().signHash(*hash.keyId, text, hash.digest(), room); };
    const auto outcome = callWithFreshPin(*std::move(pin), "CPSignHash: SSO expired, re-prompting for PIN", sign,
                                          [&] { return ensurePinValidated(context); });
    if (!outcome) return outcome.error();
    const auto& signedLength = *outcome;
    if (!signedLength) {
        logError("Sign hash failed : ", signedLength.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    // The token returns the most significant byte first; CryptoAPI expects it last.
    std::ranges::reverse(room.first(*signedLength));
    signatureLength = static_cast<DWORD>(*signedLength);
    return done();
}

Outcome<DWORD> finishedSize(HCRYPTPROV hProv, HCRYPTHASH hHash, const HashContext& hash)
{
    DWORD size = 0;
    if (!CPGetHashParam(hProv, hHash, HP_HASHVAL, nullptr, &size, 0)) {
        logError("CPGetHashParam failed to get hash size");
        return std::unexpected(fail(NTE_BAD_HASH));
    }
    if (size > hash.hashSize) {
        logError("Hash size larger than expected");
        return std::unexpected(fail(NTE_BAD_HASH));
    }
    return size;
}

// Calls the entry point, so that its rules for reading a digest back apply here too.
Outcome<void> readDigest(HCRYPTPROV hProv, HCRYPTHASH hHash, HashContext& hash)
{
    auto size = finishedSize(hProv, hHash, hash);
    if (!size) return std::unexpected(size.error());
    Bytes digest(*size);
    if (!CPGetHashParam(hProv, hHash, HP_HASHVAL, digest.data(), &*size, 0)) {
        logError("CPGetHashParam failed to get hash value");
        return std::unexpected(fail(NTE_BAD_HASH));
    }
    std::copy_n(digest.begin(), *size, hash.hashValue.begin());
    hash.hashLength = *size;
    logDebug("Hash obtained using CPGetHashParam");
    return {};
}

Outcome<Bytes> publicKeyOfContainer(const CspContext& context)
{
    logError("Key Handle Not Initialized or Public Key Length is zero");
    logDebug("Container name : ", context.containerName);
    const auto pairs = context.token().keyPairs();
    const auto pair =
        std::ranges::find_if(pairs, [&](const auto& candidate) { return canSign(candidate.usage) && context.names(candidate); });
    if (pair == pairs.end()) return std::unexpected(fail(NTE_BAD_KEY));
    // The key counts as a raw modulus here, even if it begins with the byte that means DER elsewhere.
    return rawModulusToDer(publicKeyOf(*pair));
}

Outcome<Bytes> verificationKey(const CspContext& context, const KeyContext* key)
{
    if (!key || key->publicKey.empty()) return publicKeyOfContainer(context);
    logDebug("key handle available");
    const ByteView publicKey = key->publicKey.view();
    logDebug(isRawModulus(publicKey) ? "Public key is not DER encoded, converting to DER" : "Public key is already DER encoded");
    return publicKeyForDevice(publicKey);
}

} // namespace

} // namespace quelta

using namespace quelta;

// The key spec is ignored: the container decides which key signs.
BOOL WINAPI CPSignHash(HCRYPTPROV hProv, HCRYPTHASH hHash, DWORD, LPCWSTR, DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen)
{
    return entryPoint("CPSignHash", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        auto* hash = hashOf(hHash);
        if (!hash) return fail(NTE_BAD_HASH);
        if (!pdwSigLen) return fail(ERROR_INVALID_PARAMETER);
        // Read once, so that the token gets the checked value even if another thread of the caller changes the variable.
        const DWORD room = pbSignature ? *pdwSigLen : 0;
        if (room > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (hash->hashLength == 0 && !finaliseDigest(context->token(), *hash, digestRoom)) return fail(NTE_FAIL);
        if (!hash->keyId && !chooseSigningKey(*context, *hash)) {
            logDebug("Sign certificate not found");
            return fail(NTE_NO_KEY);
        }
        if (!pbSignature) {
            *pdwSigLen = signatureLengthOf(*hash);
            return done();
        }
        return signInto(*context, *hash, dwFlags, {pbSignature, room}, *pdwSigLen);
    });
}

BOOL WINAPI CPVerifySignature(HCRYPTPROV hProv, HCRYPTHASH hHash, const BYTE* pbSignature, DWORD cbSigLen, HCRYPTKEY hPubKey,
                              LPCWSTR, DWORD)
{
    return entryPoint("CPVerifySignature", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) {
            logError("CSP Context Not Initialized");
            return fail(NTE_BAD_UID);
        }
        auto* hash = hashOf(hHash);
        if (!hash) {
            logError("Hash Context is not Initialized");
            return fail(NTE_BAD_HASH);
        }
        if ((!pbSignature && cbSigLen != 0) || cbSigLen > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (hash->hashLength == 0) {
            if (const auto digest = readDigest(hProv, hHash, *hash); !digest) return digest.error();
        }
        const auto publicKey = verificationKey(*context, keyOf(hPubKey));
        if (!publicKey) return publicKey.error();
        // The token expects the most significant byte first, so it gets a reversed copy. The caller's buffer must not change.
        const Bytes signature = reversed({pbSignature, cbSigLen});
        // CryptoAPI's side passes the same algorithm code for every key.
        constexpr std::uint32_t algorithm = 2;
        const int result = context->token().verifySignatureHash(algorithm, hash->digest(), *publicKey, signature);
        logDebug("pContext->serialNumber: ", context->serialNumber);
        logDebug("pHashContext->hashLength: ", hash->hashLength);
        logDebug("PublicKeyLength: ", publicKey->size());
        logDebug("Signature Length: ", cbSigLen);
        if (result == 0) return done();
        logError("VERIFY SIGNATURE FAILED :: ", result);
        return fail(NTE_BAD_SIGNATURE);
    });
}
