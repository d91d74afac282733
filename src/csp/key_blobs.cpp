#include "base/table.h"
#include "csp/context.h"
#include "csp/entry_points.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "encoding/capi_blobs.h"
#include "token/handles.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/key_unwrap.h"
#include "token/record_fields.h"

#include <algorithm>
#include <utility>

namespace quelta {

namespace {

struct Import {
    const CspContext& context;
    ByteView blob;
    CapiBlobHeader header;
    // Null if the caller gave none.
    const KeyContext* importKey;
};

using ImportedKey = Outcome<std::unique_ptr<KeyContext>>;

std::unexpected<Answer> refuse(auto code)
{
    return std::unexpected(fail(code));
}

struct SymmetricAlgorithm {
    ALG_ID id;
    std::uint32_t encryptionType;
};

constexpr SymmetricAlgorithm plainTextAlgorithms[] = {
    {CALG_AES_128, encryptionAes128},
    {CALG_AES_256, encryptionAes256},
};

constexpr SymmetricAlgorithm simpleBlobAlgorithms[] = {
    {CALG_3DES, encryptionTripleDes},
    {CALG_AES_128, encryptionAes128},
    {CALG_AES_256, encryptionAes256},
};

ImportedKey importPublicKey(const Import& import)
{
    const auto parsed = parseCapiPublicBlob(import.blob);
    if (!parsed) return refuse(NTE_BAD_DATA);
    logDebug("Public exponent : ", hex(parsed->exponent));
    auto key = std::make_unique<KeyContext>();
    const auto algorithm = rsaAlgorithmOfBits(parsed->bitLength);
    if (!algorithm || !key->publicKey.assign(capiPublicKeyToDer(*parsed))) {
        logError("Unsupported RSA key size");
        return refuse(NTE_BAD_DATA);
    }
    key->algorithm = *algorithm;
    key->bitLength = parsed->bitLength;
    logDebug("PUBLICKEYBLOB imported successfully");
    return key;
}

ImportedKey importPlainTextKey(const Import& import)
{
    const auto* algorithm = findRow(plainTextAlgorithms, &SymmetricAlgorithm::id, import.header.algorithm);
    if (!algorithm) {
        logError("Unsupported algorithm for PLAINTEXTKEYBLOB: ", import.header.algorithm);
        return refuse(NTE_BAD_ALGID);
    }
    const ByteView value = keyOfCapiBlob(import.blob);
    if (value.size() > importedKeyRoom) return refuse(NTE_BAD_DATA);
    // Allocate first. If memory ran out after the import, the key would exist on the token while the caller is told that it
    // failed.
    auto key = std::make_unique<KeyContext>();
    const auto stored =
        importSymmetricKey(import.context.token(), *tokenState().pinCache.pin(), value, algorithm->encryptionType);
    if (!stored) {
        logError("PLAINTEXTKEYBLOB import failed");
        return refuse(NTE_BAD_TYPE);
    }
    copyIdentity(*stored, *key);
    key->algorithm = algorithm->encryptionType;
    logDebug("PLAINTEXTKEYBLOB imported successfully (AES)");
    return key;
}

// Returns the unwrapped bytes. The module does not check whether they are a key.
Outcome<ByteView> unwrappedBytes(const DeviceBuffer& key)
{
    if (const auto bytes = key.upTo(importedKeyRoom)) return *bytes;
    const bool tooLong = key && std::cmp_greater(key.reportedLength(), importedKeyRoom);
    if (tooLong) return refuse(NTE_BAD_DATA);
    return refuse(NTE_PROVIDER_DLL_FAIL);
}

ImportedKey importWrappedKey(const Import& import)
{
    const ByteView wrapped = wrappedKeyOfCapiBlob(import.blob);
    logDebug("SYMMETRICWRAPKEYBLOB: wrapped key length = ", wrapped.size());
    // Allocate first. If memory ran out after the import, the key would exist on the token while the caller is told that it
    // failed.
    auto key = std::make_unique<KeyContext>();
    const Pin pin = tokenState().pinCache.pin();
    auto unwrapped = UnwrapWithAnyKek(import.context.token(), wrapped);
    if (!unwrapped) {
        logError("Failed to unwrap SYMMETRICWRAPKEYBLOB with any available KEK");
        return refuse(NTE_BAD_KEY);
    }
    logDebug("Successfully unwrapped key with KEK: ", hex(unwrapped->keyEncryptionKeyId));
    const auto value = unwrappedBytes(unwrapped->key);
    if (!value) return std::unexpected(value.error());
    const std::uint32_t sizeCode = import.header.algorithm == CALG_AES_128 ? encryptionAes128 : encryptionAes256;
    const auto stored = importSymmetricKey(import.context.token(), *pin, *value, sizeCode);
    // Wipe the clear key before anything else is done.
    unwrapped->key = DeviceBuffer();
    if (!stored) {
        logError("Import of unwrapped AES key failed");
        return refuse(NTE_BAD_TYPE);
    }
    copyIdentity(*stored, *key);
    // This is the blob's algorithm identifier, not the token's code for the algorithm.
    key->algorithm = import.header.algorithm;
    logDebug("SYMMETRICWRAPKEYBLOB imported successfully");
    return key;
}

DeviceResult<DeviceBuffer> decryptOnce(const Import& import, const PinText& pin, ByteView encrypted)
{
    auto clear = import.context.token().decrypt(import.importKey->keyId, pin, encrypted, import.importKey->keyPairFlag != 0);
    if (!checkedBytes(clear, encrypted.size())) logError("SIMPLEBLOB decryption failed");
    return clear;
}

// Tries CryptoAPI's byte order first, least significant byte first, and then the bytes as given.
Outcome<DeviceBuffer> decryptSimpleBlob(const Import& import)
{
    const Pin pin = tokenState().pinCache.pin();
    const ByteView given = keyOfCapiBlob(import.blob);
    auto clear = decryptOnce(import, *pin, reversed(given));
    if (!clear) {
        clear = decryptOnce(import, *pin, given);
        if (!clear) return std::unexpected(failKeepingLastError());
    }
    if (!checkedBytes(clear, given.size())) return refuse(NTE_PROVIDER_DLL_FAIL);
    return *std::move(clear);
}

ImportedKey importSimpleKey(const Import& import)
{
    if (!import.importKey) {
        logError("SIMPLEBLOB requires public key handle");
        return refuse(NTE_BAD_TYPE);
    }
    logDebug("Input key id : ", hex(import.importKey->keyId));
    const auto clear = decryptSimpleBlob(import);
    if (!clear) return std::unexpected(clear.error());
    const auto* algorithm = findRow(simpleBlobAlgorithms, &SymmetricAlgorithm::id, import.header.algorithm);
    if (!algorithm) {
        logError("Unsupported algorithm for SIMPLEBLOB: ", import.header.algorithm);
        return refuse(NTE_BAD_ALGID);
    }
    auto key = std::make_unique<KeyContext>();
    const auto value = clear->upTo(import.blob.size());
    if (!value || value->empty() || !key->symmetricKey->assign(*value)) return refuse(NTE_BAD_DATA);
    key->algorithm = algorithm->encryptionType;
    logDebug("Output key id : ", hex(key->keyId));
    logDebug("SIMPLEBLOB imported successfully (AES)");
    return key;
}

struct BlobType {
    std::uint8_t type;
    ImportedKey (*import)(const Import& import);
};

constexpr BlobType blobTypes[] = {
    {blobTypeSimple, importSimpleKey},
    {blobTypePublicKey, importPublicKey},
    {blobTypePlainTextKey, importPlainTextKey},
    {blobTypeSymmetricWrapKey, importWrappedKey},
};

Answer refuseType(std::uint8_t type)
{
    if (type == blobTypePrivateKey || type == blobTypePublicKeyEx) {
        logError("Key Block Not Implemented yet");
    } else {
        logError("CPImportKey - Unsupported type : ", type);
    }
    return fail(NTE_BAD_TYPE);
}

Answer importBlob(const CspContext& context, ByteView blob, HCRYPTKEY importKey, HCRYPTKEY* imported)
{
    if (blob.size() < capiKeyBlobHeaderSize) return fail(NTE_BAD_DATA);
    const CapiBlobHeader header = readCapiBlobHeader(blob);
    logDebug("CPImportKey - input type : ", header.type);
    logDebug("CPImportKey - input version : ", header.version);
    logDebug("CPImportKey - input alg : ", header.algorithm);
    logDebug("CPImportKey - input data length : ", blob.size() - capiKeyBlobHeaderSize);
    if (blob.size() == capiKeyBlobHeaderSize) {
        logError("CPImportKey - Input data to import is empty");
        return fail(NTE_INVALID_PARAMETER);
    }
    const auto* type = findRow(blobTypes, &BlobType::type, header.type);
    if (!type) return refuseType(header.type);
    if (!imported) return fail(ERROR_INVALID_PARAMETER);
    auto key = type->import({context, blob, header, keyOf(importKey)});
    if (!key) return key.error();
    *imported = handOut(*std::move(key));
    return done();
}

Answer exportPublicKey(const CspContext& context, const KeyContext& key, Output out)
{
    const auto pairs = context.token().keyPairs();
    const auto* pair = findKeyPair(pairs, key.keyId);
    // Only RSA keys of 2048 bits can be exported.
    if (!pair || pair->algorithm != algorithmRsa2048) return fail(NTE_BAD_KEY);
    const Bytes blob = writeCapiPublicBlob(key.algorithm, publicKeyOf(*pair));
    // Write the length first: a caller that uses one variable for both gets the blob.
    *out.length = static_cast<DWORD>(blob.size());
    if (out.isQuery()) {
        logDebug("Emport public key more data required");
        return moreDataButTrue();
    }
    if (!out.holds(blob.size())) return moreDataAndFalse();
    logDebug("key usage : ", key.algorithm);
    std::ranges::copy(blob, out.data);
    return {TRUE, DWORD{ERROR_SUCCESS}};
}

Answer exportBlob(const CspContext& context, const KeyContext& key, DWORD type, Output out)
{
    switch (type) {
    case PUBLICKEYBLOB: return exportPublicKey(context, key, out);
    case PRIVATEKEYBLOB: return fail(ERROR_ACCESS_DENIED);
    default: return fail(NTE_BAD_TYPE);
    }
}

} // namespace

} // namespace quelta

using namespace quelta;

BOOL WINAPI CPImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey)
{
    return entryPoint("CPImportKey", [&]() -> Answer {
        logDebug("Input length : ", dwDataLen);
        logDebug("Input flag : ", dwFlags);
        if (!pbData) {
            logError("CPImportKey - Input data is null");
            return fail(ERROR_INVALID_PARAMETER);
        }
        const auto* context = contextOf(hProv);
        if (!context) {
            logError("CPImportKey - Contest null or not initialised");
            return fail(NTE_BAD_UID);
        }
        if (dwDataLen > longestDeviceLength) return fail(ERROR_INVALID_PARAMETER);
        return importBlob(*context, {pbData, dwDataLen}, hPubKey, phKey);
    });
}

BOOL WINAPI CPExportKey(HCRYPTPROV hProv, HCRYPTKEY hKey, HCRYPTKEY, DWORD dwBlobType, DWORD dwFlags, BYTE* pbData,
                        DWORD* pdwDataLen)
{
    return entryPoint("CPExportKey", [&]() -> Answer {
        logDebug("dwBlobType : ", dwBlobType);
        logDebug("dwFlags : ", dwFlags);
        const auto* key = keyOf(hKey);
        if (!key || !pdwDataLen) return fail(ERROR_INVALID_PARAMETER);
        const auto* context = contextOf(hProv);
        if (!context) return fail(NTE_BAD_UID);
        const Answer answer = exportBlob(*context, *key, dwBlobType, {pbData, pdwDataLen});
        logDebug("Exportkey return status : ", answer.value);
        return answer;
    });
}
