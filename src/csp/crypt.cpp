#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "encoding/rsa_public_key.h"
#include "token/expired_session.h"
#include "token/key_algorithms.h"

#include <algorithm>

namespace quelta {

namespace {

// Encrypts in place. `inputLength` was read once: the caller may change its variable while a dialog is open.
Answer encryptInto(Output out, const CspContext& context, const KeyContext& key, DWORD flags, DWORD inputLength)
{
    // Encryption asks for the PIN although it uses only the public key.
    if (const auto pin = ensurePinValidated(context); !pin) return pin.error();
    const ByteView publicKey = key.publicKey.view();
    logDebug(isRawModulus(publicKey) ? "CSP: Public key is raw modulus, converting to DER"
                                     : "CSP: Public key is already DER encoded");
    Wiped<std::array<unsigned char, encryptionRoom>> work;
    const auto padding = flags & CRYPT_OAEP ? paddingOaep : paddingPkcs1;
    // The size is passed in bytes, not bits, so every real key gets the default type. This is meant so.
    const auto type = encryptionTypeOfSize(publicKey.size());
    const auto encrypted = context.token().encrypt(type, padding, {out.data, inputLength}, *work, publicKeyForDevice(publicKey));
    if (!encrypted) {
        logError("Encrypt data failed: ", encrypted.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    const auto cipher = std::span(*work).first(*encrypted);
    std::ranges::reverse(cipher);
    const Answer answer = putOrRefuse(out, cipher);
    if (answer.value) logDebug("CPEncrypt - return success");
    return answer;
}

// The plaintext fits, because it is never longer than the input. Write the length first: both may be one variable.
Answer putPlainText(Output out, ByteView plain)
{
    *out.length = static_cast<DWORD>(plain.size());
    std::ranges::copy(plain, out.data);
    return done();
}

Answer decryptWithKeyPair(Output out, const CspContext& context, const KeyContext& key, Pin pin)
{
    logDebug("Before reversing encrypted data");
    const Bytes cipher = reversed({out.data, out.room});
    logDebug("After reversing encrypted data");
    logDebug("Before decrypting data");
    const auto decrypt = [&](const PinText& text) {
        return context.token().decrypt(key.keyId, text, cipher, key.keyPairFlag != 0);
    };
    const auto outcome = callWithFreshPin(std::move(pin), "CPDecrypt: SSO expired, re-prompting for PIN", decrypt,
                                          [&] { return ensurePinValidated(context); });
    if (!outcome) return outcome.error();
    logDebug("After decrypting data");
    const auto plain = checkedBytes(*outcome, cipher.size());
    if (!plain) {
        logError("Decrypt data failed : ", plain.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    return putPlainText(out, *plain);
}

Answer decryptWithSymmetricKey(Output out, const CspContext& context, const KeyContext& key)
{
    const ByteView data(out.data, out.room);
    Wiped<Bytes> work(data.size());
    const auto iv = tokenState().sharedIv.bytes();
    const ByteView value = key.symmetricKey->view();
    logDebug("CPDecrypt input iv : ", hex(*iv));
    logDebug("CPDecrypt input key : ", hex(value));
    const auto plain = Token(context.serialNumber, nullptr).decryptSymmetric(data, *work, *iv, value);
    if (!plain) {
        logError("Symetric decryption failed : ", plain.error());
        return fail(NTE_PROVIDER_DLL_FAIL);
    }
    const ByteView decrypted = ByteView(*work).first(*plain);
    logDebug("CPDecrypt - decrypted data : ", hex(decrypted));
    return putPlainText(out, decrypted);
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
        const DWORD inputLength = *pdwDataLen;
        const Output out(pbData, dwBufLen, pdwDataLen);
        const std::size_t size = key->bitLength / 8;
        if (out.isQuery()) return tellLength(out, size);
        if (!out.holds(size)) return tellLength(out, size, moreDataAndFalse());
        if (inputLength > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (inputLength == 0 || inputLength > dwBufLen) {
            logError("Invalid data length for encrypt: ", inputLength);
            return fail(NTE_BAD_LEN);
        }
        return encryptInto(out, *context, *key, dwFlags, inputLength);
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
        const Output out(pbData, pdwDataLen);
        if (!pbData || out.room == 0) {
            logError("Invalid data length for decrypt : ", out.room);
            return fail(NTE_BAD_DATA);
        }
        if (out.room > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        auto pin = ensurePinValidated(*context);
        if (!pin) return pin.error();
        const Answer answer = key->symmetricKey->empty() ? decryptWithKeyPair(out, *context, *key, *std::move(pin))
                                                         : decryptWithSymmetricKey(out, *context, *key);
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
