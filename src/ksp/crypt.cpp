#include "encoding/rsa_public_key.h"
#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/output.h"
#include "ksp/provider.h"
#include "token/expired_session.h"
#include "token/key_algorithms.h"

namespace quelta {

namespace {

bool isInput(const BYTE* data, DWORD length)
{
    return data && length != 0 && length <= longestDeviceLength;
}

std::expected<Pin, SECURITY_STATUS> pinFor(const KspProvider& provider, DWORD flags)
{
    // A silent call needs a validated PIN in the cache; an open single sign-on is not checked. Pass on the PIN that was found:
    // the cache may be cleared meanwhile, and a second read would then open a dialog.
    Pin cached = tokenState().pinCache.pinIfValidated();
    if ((flags & NCRYPT_SILENT_FLAG) && !cached) return std::unexpected(NTE_SILENT_CONTEXT);
    return kspEnsurePin(provider, std::move(cached));
}

Bytes publicKeyOf(const KspKey& key)
{
    const ByteView publicKey = key.publicKey.view();
    logDebug(isRawModulus(publicKey) ? "KSP: Public key is raw modulus, converting to DER"
                                     : "KSP: Public key is already DER encoded");
    return publicKeyForDevice(publicKey);
}

SECURITY_STATUS encryptTo(KspOutput out, const KspProvider& provider, const KspKey& key, ByteView input, DWORD flags)
{
    const Bytes publicKey = publicKeyOf(key);
    std::array<unsigned char, encryptionRoom> work{};
    const auto padding = flags & NCRYPT_PAD_OAEP_FLAG ? paddingOaep : paddingPkcs1;
    const auto encrypted = provider.token().encrypt(encryptionTypeOfSize(key.bitLength), padding, input, work, publicKey);
    if (!encrypted) {
        logError("KSP: Encrypt failed: ", encrypted.error());
        return NTE_INTERNAL_ERROR;
    }
    const SECURITY_STATUS status = putResult(out, ByteView(work).first(*encrypted));
    if (status == statusDone) logDebug("KSP: Encrypt success");
    return status;
}

SECURITY_STATUS decryptWithKeyPair(KspOutput out, const KspProvider& provider, const KspKey& key, Pin pin, ByteView input)
{
    const auto decrypt = [&](const PinText& text) {
        return provider.token().decrypt(key.keyId, text, input, key.keyPairFlag != 0);
    };
    const auto outcome = callWithFreshPin(std::move(pin), "KSP: Decrypt SSO expired, re-prompting for PIN", decrypt,
                                          [&] { return kspEnsurePin(provider); });
    if (!outcome) return outcome.error();
    const auto plain = checkedBytes(*outcome, input.size());
    if (!plain) {
        logError("KSP: Decrypt failed: ", plain.error());
        return NTE_INTERNAL_ERROR;
    }
    const SECURITY_STATUS status = putResult(out, *plain);
    if (status == statusDone) logDebug("KSP: Decrypt success");
    return status;
}

SECURITY_STATUS decryptWithSymmetricKey(KspOutput out, const KspProvider& provider, const KspKey& key, ByteView input)
{
    const bool ecb = key.chainingMode == ChainingMode::ecb;
    logDebug(ecb ? "KSP: Symmetric decrypt ECB mode" : "KSP: Symmetric decrypt CBC mode");
    const auto sharedIv = tokenState().sharedIv.bytes();
    const ByteView iv = ecb ? ByteView() : ByteView(*sharedIv);
    logDebug("KSP: Decrypt input iv : ", hex(iv));
    const ByteView value = key.symmetricKey->view();
    logDebug("KSP: Decrypt input key : ", hex(value));
    Wiped<Bytes> work(input.size());
    const auto plain = provider.token().decryptSymmetric(input, *work, iv, value);
    if (!plain) {
        logError("KSP: Symmetric decryption failed: ", plain.error());
        return NTE_INTERNAL_ERROR;
    }
    if (!out.holds(*plain)) {
        // A buffer that is too short logs the same line as a null buffer.
        logDebug("pbOutput == NULL ");
        return tellLength(out, *plain, out.isQuery() ? statusDone : NTE_BUFFER_TOO_SMALL);
    }
    logDebug("KSP: Symmetric decrypt success, length: ", *plain);
    return putResult(out, ByteView(*work).first(*plain));
}

SECURITY_STATUS signInto(KspOutput out, const KspProvider& provider, const KspKey& key, Pin pin, ByteView hash)
{
    logDebug("KSP: SignHash - credential: ", hex(key.keyId));
    logDebug("KSP: SignHash - hash length: ", hash.size());
    const auto sign = [&](const PinText& text) { return provider.token().signHash(key.keyId, text, hash, {out.data, out.room}); };
    const auto outcome = callWithFreshPin(std::move(pin), "KSP: SignHash SSO expired, re-prompting for PIN", sign,
                                          [&] { return kspEnsurePin(provider); });
    if (!outcome) return outcome.error();
    const auto& length = *outcome;
    if (!length) {
        logError("KSP: Sign hash failed: ", length.error());
        return NTE_INTERNAL_ERROR;
    }
    logDebug("KSP: SignHash success, signature length=", *length);
    return tellLength(out, *length);
}

} // namespace

SECURITY_STATUS WINAPI KSPEncrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput, DWORD cbInput, VOID*,
                                  PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    return slot("KSPEncrypt", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        const auto* key = kspKeyOf(hKey);
        if (!key || !pcbResult) return NTE_INVALID_PARAMETER;
        const KspOutput out{pbOutput, cbOutput, pcbResult};
        const std::uint32_t size = key->bitLength / 8;
        if (!pbOutput) return tellLength(out, size);
        if (cbOutput < size) return tellLength(out, size, NTE_BUFFER_TOO_SMALL);
        if (!isInput(pbInput, cbInput)) return NTE_INVALID_PARAMETER;
        if (const auto pin = pinFor(*provider, dwFlags); !pin) return pin.error();
        return encryptTo(out, *provider, *key, {pbInput, cbInput}, dwFlags);
    });
}

SECURITY_STATUS WINAPI KSPDecrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput, DWORD cbInput, VOID*,
                                  PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    return slot("KSPDecrypt", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        const auto* key = kspKeyOf(hKey);
        if (!key || !pcbResult) return NTE_INVALID_PARAMETER;
        const KspOutput out{pbOutput, cbOutput, pcbResult};
        if (!key->isSymmetric() && !pbOutput) return tellLength(out, key->bitLength / 8);
        if (!isInput(pbInput, cbInput)) return NTE_INVALID_PARAMETER;
        auto pin = pinFor(*provider, dwFlags);
        if (!pin) return pin.error();
        const ByteView input(pbInput, cbInput);
        return key->isSymmetric() ? decryptWithSymmetricKey(out, *provider, *key, input)
                                  : decryptWithKeyPair(out, *provider, *key, *std::move(pin), input);
    });
}

SECURITY_STATUS WINAPI KSPSignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID*, PBYTE pbHashValue,
                                   DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature, DWORD* pcbResult, DWORD dwFlags)
{
    return slot("KSPSignHash", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        const auto* key = kspKeyOf(hKey);
        if (!key || !pcbResult) return NTE_INVALID_PARAMETER;
        const KspOutput out{pbSignature, cbSignature, pcbResult};
        const std::uint32_t size = key->bitLength / 8;
        if (!pbSignature) {
            logDebug("KSP: SignHash size query, returning ", size);
            return tellLength(out, size);
        }
        if (!isInput(pbHashValue, cbHashValue) || cbSignature > longestDeviceLength) return NTE_INVALID_PARAMETER;
        if (cbSignature < size) return tellLength(out, size, NTE_BUFFER_TOO_SMALL);
        auto pin = pinFor(*provider, dwFlags);
        if (!pin) return pin.error();
        // This check comes after the PIN: the user is asked even for a request that is then refused.
        if ((dwFlags & BCRYPT_PAD_PSS) && !(dwFlags & BCRYPT_PAD_PKCS1)) {
            logError("KSP: PSS padding not supported");
            return NTE_NOT_SUPPORTED;
        }
        return signInto(out, *provider, *key, *std::move(pin), {pbHashValue, cbHashValue});
    });
}

SECURITY_STATUS WINAPI KSPVerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID*, PBYTE pbHashValue,
                                          DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature, DWORD)
{
    return slot("KSPVerifySignature", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        const auto* key = kspKeyOf(hKey);
        if (!provider || !key) return NTE_INVALID_HANDLE;
        if (!isInput(pbHashValue, cbHashValue) || !isInput(pbSignature, cbSignature)) return NTE_INVALID_PARAMETER;
        if (key->publicKey.empty()) {
            logError("KSP: No public key for verification");
            return NTE_BAD_KEY;
        }
        const Bytes publicKey = publicKeyOf(*key);
        logDebug("KSP: VerifySignature - hash length: ", cbHashValue);
        logDebug("KSP: VerifySignature - public key length: ", publicKey.size());
        logDebug("KSP: VerifySignature - signature length: ", cbSignature);
        const ByteView hash(pbHashValue, cbHashValue);
        const ByteView signature(pbSignature, cbSignature);
        if (const int result = provider->token().verifySignatureHash(key->algorithm, hash, publicKey, signature)) {
            logError("KSP: Verify signature failed: ", result);
            return NTE_BAD_SIGNATURE;
        }
        logDebug("KSP: Verify signature success");
        return statusDone;
    });
}

} // namespace quelta
