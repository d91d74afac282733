#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "encoding/rsa_public_key.h"
#include "token/expired_session.h"
#include "token/table.h"

#include <algorithm>

namespace quelta {

namespace {

// A buffer for what must not stay in memory.
class WorkBuffer {
public:
    explicit WorkBuffer(std::size_t size) : bytes_(size) {}
    WorkBuffer(const WorkBuffer&) = delete;
    WorkBuffer& operator=(const WorkBuffer&) = delete;
    ~WorkBuffer() { wipe(bytes_.data(), bytes_.size()); }

    std::span<unsigned char> room() { return bytes_; }

private:
    Bytes bytes_;
};

struct EncryptionRow {
    std::size_t publicKeySize;
    EncryptionType type;
};

// Compared with the number of public-key bytes, not of bits: so every real key takes the default. What the library is used to.
constexpr EncryptionRow encryptionTypes[] = {
    {1024, EncryptionType{7}},
    {2048, EncryptionType{8}},
    {3072, EncryptionType{9}},
    {4096, EncryptionType{10}},
};
constexpr EncryptionType defaultEncryptionType{8};

EncryptionType encryptionTypeOf(const KeyContext& key)
{
    const auto* row = findRow(encryptionTypes, &EncryptionRow::publicKeySize, key.publicKey.size());
    return row ? row->type : defaultEncryptionType;
}

Bytes publicKeyToDer(const KeyContext& key)
{
    const ByteView publicKey = key.publicKey.view();
    if (publicKey.empty() || isDer(publicKey)) {
        logDebug("CSP: Public key is already DER encoded");
        return {publicKey.begin(), publicKey.end()};
    }
    logDebug("CSP: Public key is raw modulus, converting to DER");
    return rawModulusToDer(publicKey);
}

// Encrypts what stands at the front of the buffer in place.
Answer encryptInPlace(const CspContext& context, const KeyContext& key, DWORD flags, std::span<BYTE> buffer, DWORD& length)
{
    // Although only the public key is used.
    if (const auto pin = ensurePinValidated(context); !pin) return pin.error();
    const Bytes publicKey = publicKeyToDer(key);
    WorkBuffer work(encryptionRoom);
    const auto padding = flags & CRYPT_OAEP ? paddingOaep : paddingPkcs1;
    const auto encrypted = context.token().encrypt(encryptionTypeOf(key), padding, buffer.first(length),
                                                   work.room().first<encryptionRoom>(), publicKey);
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

Answer copyPlain(ByteView plain, BYTE* data, DWORD& length)
{
    std::ranges::copy(plain, data);
    length = static_cast<DWORD>(plain.size());
    return done();
}

Answer decryptWithKeyPair(const CspContext& context, const KeyContext& key, const Pin& pin, BYTE* data, DWORD& length)
{
    logDebug("Before reversing encrypted data");
    const Bytes cipher(std::reverse_iterator(data + length), std::reverse_iterator(data));
    logDebug("After reversing encrypted data");
    logDebug("Before decrypting data");
    const auto decrypt = [&](const PinText& text) { return context.token().decrypt(key.keyId, text, cipher, key.keyPairFlag != 0); };
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

Answer decryptWithSymmetricKey(const CspContext& context, const KeyContext& key, BYTE* data, DWORD& length)
{
    WorkBuffer work(length);
    const auto iv = tokenState().sharedIv.bytes();
    logDebug("CPDecrypt input iv : ", hex(*iv));
    logDebug("CPDecrypt input key : ", hex(key.symmetricKey.view()));
    const auto plain =
        context.token().withoutContext().decryptSymmetric({data, length}, work.room(), *iv, key.symmetricKey.view());
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
        if (*pdwDataLen > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        if (*pdwDataLen == 0 || *pdwDataLen > dwBufLen) {
            logError("Invalid data length for encrypt: ", *pdwDataLen);
            return fail(NTE_BAD_LEN);
        }
        return encryptInPlace(*context, *key, dwFlags, {pbData, dwBufLen}, *pdwDataLen);
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
        if (!pbData || *pdwDataLen == 0) {
            logError("Invalid data length for decrypt : ", *pdwDataLen);
            return fail(NTE_BAD_DATA);
        }
        if (*pdwDataLen > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        const auto pin = ensurePinValidated(*context);
        if (!pin) return pin.error();
        const Answer answer = key->symmetricKey.empty() ? decryptWithKeyPair(*context, *key, *pin, pbData, *pdwDataLen)
                                                        : decryptWithSymmetricKey(*context, *key, pbData, *pdwDataLen);
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
