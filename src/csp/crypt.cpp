#include "base/work_buffer.h"
#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "encoding/public_key_form.h"
#include "token/expired_session.h"
#include "token/key_match.h"

#include <algorithm>

namespace quelta {

namespace {

constexpr PublicKeyTexts publicKeyTexts = {
    .alreadyDer = "CSP: Public key is already DER encoded",
    .rawModulus = "CSP: Public key is raw modulus, converting to DER",
};

// Encrypts what stands at the front of the buffer in place. The caller's length was read once: it may change while a dialog is
// open.
Answer encryptInPlace(const CspContext& context, const KeyContext& key, DWORD flags, std::span<BYTE> buffer, DWORD inputLength,
                      DWORD& length)
{
    // Although only the public key is used.
    if (const auto pin = ensurePinValidated(context); !pin) return pin.error();
    const Bytes publicKey = publicKeyForDevice(key.publicKey.view(), publicKeyTexts);
    WorkBuffer work(encryptionRoom);
    const auto padding = flags & CRYPT_OAEP ? paddingOaep : paddingPkcs1;
    // By the number of public-key bytes, not of bits, so that every real key takes the default. What the library is used to.
    const auto type = encryptionTypeOfSize(key.publicKey.size());
    const auto encrypted =
        context.token().encrypt(type, padding, buffer.first(inputLength), work.room().first<encryptionRoom>(), publicKey);
    if (!encrypted) {
        logError("Encrypt data failed: ", encrypted.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    length = static_cast<DWORD>(*encrypted);
    if (*encrypted > buffer.size()) return moreDataAndFalse();
    std::ranges::reverse_copy(work.room().first(*encrypted), buffer.begin());
    logDebug("CPEncrypt - return success");
    return done();
}

Answer copyPlain(ByteView plain, std::span<BYTE> data, DWORD& length)
{
    std::ranges::copy(plain, data.begin());
    length = static_cast<DWORD>(plain.size());
    return done();
}

Answer decryptWithKeyPair(const CspContext& context, const KeyContext& key, const Pin& pin, std::span<BYTE> data, DWORD& length)
{
    logDebug("Before reversing encrypted data");
    const Bytes cipher(data.rbegin(), data.rend());
    logDebug("After reversing encrypted data");
    logDebug("Before decrypting data");
    const auto decrypt = [&](const PinText& text) {
        return context.token().decrypt(key.keyId, text, cipher, key.keyPairFlag != 0);
    };
    Answer refusal = done();
    const auto outcome = callWithFreshPin(pin, "CPDecrypt: SSO expired, re-prompting for PIN", decrypt, [&] {
        const auto renewed = ensurePinValidated(context);
        if (!renewed) refusal = renewed.error();
        return renewed;
    });
    if (!outcome) return refusal;
    logDebug("After decrypting data");
    const auto& plain = *outcome;
    if (!plain) {
        logError("Decrypt data failed : ", plain.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    return copyPlain(plain->view(), data, length);
}

Answer decryptWithSymmetricKey(const CspContext& context, const KeyContext& key, std::span<BYTE> data, DWORD& length)
{
    WorkBuffer work(data.size());
    const auto iv = tokenState().sharedIv.bytes();
    logDebug("CPDecrypt input iv : ", hex(*iv));
    logDebug("CPDecrypt input key : ", hex(key.symmetricKey.view()));
    const auto plain = context.token().withoutContext().decryptSymmetric(data, work.room(), *iv, key.symmetricKey.view());
    if (!plain) {
        logError("Symetric decryption failed : ", plain.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    const ByteView decrypted = work.room().first(*plain);
    logDebug("CPDecrypt - decrypted data : ", hex(decrypted));
    return copyPlain(decrypted, data, length);
}

} // namespace

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPEncrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH, BOOL, DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen,
                      DWORD dwBufLen)
{
    return entryPoint("CPEncrypt", [&]() -> Answer {
        if (!pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        const auto* key = keyOf(hKey);
        if (!key) return fail(NTE_BAD_KEY);
        const DWORD outputSize = key->bitLength / 8;
        if (!pbData || dwBufLen < outputSize) {
            *pdwDataLen = outputSize;
            return pbData ? moreDataAndFalse() : done();
        }
        const DWORD inputLength = *pdwDataLen;
        if (inputLength > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (inputLength == 0 || inputLength > dwBufLen) {
            logError("Invalid data length for encrypt: ", inputLength);
            return fail(NTE_BAD_LEN);
        }
        return encryptInPlace(*context, *key, dwFlags, {pbData, dwBufLen}, inputLength, *pdwDataLen);
    });
}

BOOL WINAPI CPDecrypt(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTHASH, BOOL, DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen)
{
    return entryPoint("CPDecrypt", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        const auto* key = keyOf(hKey);
        if (!key) return fail(NTE_BAD_KEY);
        logDebug("CPDecrypt - dwFlags : ", dwFlags);
        logDebug("CPDecrypt - key id : ", hex(key->keyId));
        logDebug("CPDecrypt - usage : ", key->keyUsage);
        if (!pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        const DWORD length = *pdwDataLen;
        if (!pbData || length == 0) {
            logError("Invalid data length for decrypt : ", length);
            return fail(NTE_BAD_DATA);
        }
        if (length > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        const auto pin = ensurePinValidated(*context);
        if (!pin) return pin.error();
        const std::span<BYTE> data(pbData, length);
        const Answer answer = key->symmetricKey.empty() ? decryptWithKeyPair(*context, *key, *pin, data, *pdwDataLen)
                                                        : decryptWithSymmetricKey(*context, *key, data, *pdwDataLen);
        if (answer.value) logDebug("CPDecrypt- return");
        return answer;
    });
}

BOOL WINAPI CPGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer)
{
    return entryPoint("CPGenRandom", [&]() -> Answer {
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        if (!pbBuffer || dwLen == 0 || dwLen > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (const int result = context->token().random({pbBuffer, dwLen}, tokenState().hardwareRngFlag == 0)) {
            logError("Random number generation failed: ", result);
            return fail(NTE_PROVIDER_DLL_FAIL);
        }
        return done();
    });
}

BOOL WINAPI CPDeriveKey(HCRYPTPROV, ALG_ID, HCRYPTHASH, DWORD, HCRYPTKEY*)
{
    return entryPoint("CPDeriveKey", []() -> Answer { return fail(NTE_NOT_SUPPORTED); });
}
