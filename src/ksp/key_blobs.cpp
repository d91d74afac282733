#include "base/table.h"
#include "encoding/capi_blobs.h"
#include "encoding/cng_blobs.h"
#include "ksp/function_table.h"
#include "ksp/key.h"
#include "ksp/output.h"
#include "ksp/provider.h"
#include "token/handles.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/key_unwrap.h"
#include "token/record_fields.h"

#include <expected>

namespace quelta {

namespace {

// The longest public key that is imported, although the record could hold a longer one.
constexpr std::size_t importedPublicKeyRoom = 512;

struct Import {
    const KspProvider& provider;
    // Null if the caller gave none.
    const KspKey* importKey;
    ByteView blob;
};

using ImportedKey = std::expected<std::unique_ptr<KspKey>, SECURITY_STATUS>;

std::unexpected<SECURITY_STATUS> refuse(SECURITY_STATUS status)
{
    return std::unexpected(status);
}

struct SymmetricCode {
    std::size_t keySize;
    std::uint32_t encryptionType;
};

// A key of 24 bytes gets the code of triple DES, even if it is an AES key.
constexpr SymmetricCode symmetricCodes[] = {
    {16, encryptionAes128},
    {24, encryptionTripleDes},
    {32, encryptionAes256},
};

ImportedKey importPublicKey(const Import& import)
{
    const auto parsed = parseCngPublicBlob(import.blob);
    if (!parsed || parsed->modulus.size() > importedPublicKeyRoom) return refuse(NTE_BAD_DATA);
    const auto algorithm = rsaAlgorithmOfBits(parsed->bitLength);
    if (!algorithm) {
        logError("KSP: Unsupported RSA key size: ", parsed->bitLength);
        return refuse(NTE_NOT_SUPPORTED);
    }
    auto key = newFinalizedKey();
    key->publicKey.assign(parsed->modulus);
    key->bitLength = parsed->bitLength;
    key->algorithm = *algorithm;
    logDebug("KSP: RSA public key imported, bits=", key->bitLength);
    return key;
}

ImportedKey importLegacyPublicKey(const Import& import)
{
    const auto parsed = parseCapiPublicBlob(import.blob);
    if (!parsed) return refuse(NTE_BAD_DATA);
    logDebug("KSP: Public exponent : ", hex(parsed->exponent));
    if (parsed->modulus.size() > importedPublicKeyRoom) return refuse(NTE_BAD_DATA);
    const Bytes der = capiPublicKeyToDer(*parsed);
    if (der.size() > importedPublicKeyRoom) return refuse(NTE_BAD_DATA);
    const auto algorithm = rsaAlgorithmOfBits(parsed->bitLength);
    if (!algorithm) {
        logError("KSP: Unsupported RSA key size");
        return refuse(NTE_NOT_SUPPORTED);
    }
    auto key = newFinalizedKey();
    key->publicKey.assign(der);
    key->bitLength = parsed->bitLength;
    key->algorithm = *algorithm;
    logDebug("KSP: Legacy RSA public key imported successfully");
    return key;
}

// The clear key stays on the token. The handle holds only its identity.
void takeStored(const QueltaSymmetricKey& stored, KspKey& key)
{
    copyIdentity(stored, key);
    key.algorithm = stored.encryptionType;
}

ImportedKey importKeyData(const Import& import)
{
    const auto value = parseKeyDataBlob(import.blob);
    if (!value) return refuse(NTE_BAD_DATA);
    const auto* code = findRow(symmetricCodes, &SymmetricCode::keySize, value->size());
    if (!code) {
        logError("KSP: Unsupported key size for BCRYPT_KEY_DATA_BLOB: ", value->size());
        return refuse(NTE_NOT_SUPPORTED);
    }
    // Allocate first. If memory ran out after the import, the key would exist on the token while the caller is told that it
    // failed.
    auto key = newFinalizedKey();
    const auto stored = importSymmetricKey(import.provider.token(), *tokenState().pinCache.pin(), *value, code->encryptionType);
    if (!stored) {
        logError("KSP: BCRYPT_KEY_DATA_BLOB import failed");
        return refuse(NTE_BAD_TYPE);
    }
    takeStored(*stored, *key);
    logDebug("KSP: BCRYPT_KEY_DATA_BLOB imported successfully (AES)");
    return key;
}

ImportedKey importWrappedKey(const Import& import)
{
    logDebug("KSP: BCRYPT_OPAQUE_KEY_BLOB: wrapped key length = ", import.blob.size());
    // Allocate first. If memory ran out after the import, the key would exist on the token while the caller is told that it
    // failed.
    auto key = newFinalizedKey();
    const Token token = import.provider.token();
    const Pin pin = tokenState().pinCache.pin();
    auto unwrapped = UnwrapWithAnyKek(token, import.blob);
    if (!unwrapped) {
        logError("KSP: Failed to unwrap BCRYPT_OPAQUE_KEY_BLOB with any available KEK");
        return refuse(NTE_BAD_KEY);
    }
    logDebug("KSP: Successfully unwrapped key with KEK: ", hex(unwrapped->keyEncryptionKeyId));
    const auto value = unwrapped->key.upTo(importedKeyRoom);
    if (!value) return refuse(NTE_BAD_DATA);
    const std::uint32_t sizeCode = value->size() == 16 ? encryptionAes128 : encryptionAes256;
    const auto stored = importSymmetricKey(token, *pin, *value, sizeCode);
    // Wipe the clear key before anything else is done.
    unwrapped->key = DeviceBuffer();
    if (!stored) {
        logError("KSP: Import of unwrapped AES key failed");
        return refuse(NTE_BAD_TYPE);
    }
    takeStored(*stored, *key);
    logDebug("KSP: BCRYPT_OPAQUE_KEY_BLOB imported successfully");
    return key;
}

// Tries the bytes in reversed order first, and then as given.
std::expected<DeviceBuffer, SECURITY_STATUS> decryptTransport(const Import& import)
{
    const Pin pin = tokenState().pinCache.pin();
    const auto decrypt = [&](ByteView encrypted) {
        return import.provider.token().decrypt(import.importKey->keyId, *pin, encrypted, import.importKey->keyPairFlag != 0);
    };
    auto clear = decrypt(reversed(import.blob));
    if (clear) return *std::move(clear);
    logError("KSP: Decryption with reversed data failed, trying original");
    clear = decrypt(import.blob);
    if (clear) return *std::move(clear);
    logError("KSP: Encrypted key decryption failed");
    return refuse(NTE_BAD_DATA);
}

ImportedKey importEncryptedKey(const Import& import)
{
    logDebug("KSP: Input key id : ", hex(import.importKey->keyId));
    auto clear = decryptTransport(import);
    if (!clear) return refuse(clear.error());
    const int length = clear->reportedLength();
    const auto* code = length < 0 ? nullptr : findRow(symmetricCodes, &SymmetricCode::keySize, static_cast<std::size_t>(length));
    if (!code) {
        logError("KSP: Unsupported decrypted key length: ", length);
        return refuse(NTE_NOT_SUPPORTED);
    }
    const auto value = clear->upTo(code->keySize);
    if (!value) return refuse(NTE_BAD_DATA);
    auto key = newFinalizedKey();
    key->symmetricKey->assign(*value);
    key->algorithm = code->encryptionType;
    logDebug("KSP: Encrypted key imported successfully");
    return key;
}

ImportedKey importTransport(const Import& import)
{
    if (import.importKey) return importEncryptedKey(import);
    logError("KSP: Encrypted key import requires import key handle");
    return refuse(NTE_BAD_KEY);
}

// An unknown type counts as an encrypted key if the caller gives a key to decrypt it.
ImportedKey importUnknown(const Import& import)
{
    if (import.importKey) return importEncryptedKey(import);
    logError("KSP: Unsupported blob type for import");
    return refuse(NTE_NOT_SUPPORTED);
}

struct ImportType {
    std::wstring_view name;
    ImportedKey (*import)(const Import& import);
};

// clang-format off
constexpr ImportType importTypes[] = {
    {L"RSAPUBLICBLOB", importPublicKey},
    {L"PUBLICBLOB", importPublicKey},
    {L"OpaqueKeyBlob", importWrappedKey},
    {L"KeyDataBlob", importKeyData},
    {L"CAPIPUBLICBLOB", importLegacyPublicKey},
    {L"OpaqueTransport", importTransport},
    {L"PKCS8_PRIVATEKEY", importTransport},
};
// clang-format on

Bytes legacyExport(ByteView publicKey)
{
    return writeCapiPublicBlob(CALG_RSA_KEYX, publicKey);
}

struct ExportType {
    std::wstring_view name;
    // Null if the export is refused. Then nothing is logged.
    Bytes (*write)(ByteView publicKey);
    bool logged;
};

// The key bytes are exported unchanged, so an EC key or DER is written as if it were a modulus of that length.
constexpr ExportType exportTypes[] = {
    {L"PRIVATEBLOB", nullptr, false},
    {L"CAPIPRIVATEBLOB", nullptr, false},
    {L"RSAPUBLICBLOB", writeCngPublicBlob, true},
    {L"PUBLICBLOB", writeCngPublicBlob, true},
    {L"CAPIPUBLICBLOB", legacyExport, false},
};

void fetchPublicKey(const KspProvider& provider, KspKey& key)
{
    const auto pairs = provider.token().keyPairs();
    if (const auto* pair = findKeyPair(pairs, key.keyId)) key.publicKey.assign(publicKeyOf(*pair));
}

} // namespace

SECURITY_STATUS WINAPI KSPImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey, LPCWSTR pszBlobType,
                                    NCryptBufferDesc*, NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData, DWORD)
{
    return slot("KSPImportKey", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        if (!pszBlobType || !phKey || !pbData || cbData == 0 || cbData > longestDeviceLength) return NTE_INVALID_PARAMETER;
        const auto* type = findRow(importTypes, &ImportType::name, pszBlobType);
        const Import import{*provider, kspKeyOf(hImportKey), {pbData, cbData}};
        auto key = type ? type->import(import) : importUnknown(import);
        if (!key) return key.error();
        *phKey = handOut(*std::move(key));
        return statusDone;
    });
}

SECURITY_STATUS WINAPI KSPExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, NCRYPT_KEY_HANDLE, LPCWSTR pszBlobType,
                                    NCryptBufferDesc*, PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD)
{
    return slot("KSPExportKey", [&]() -> SECURITY_STATUS {
        const auto* provider = providerOf(hProvider);
        if (!provider) return NTE_INVALID_HANDLE;
        auto* key = kspKeyOf(hKey);
        if (!key || !pszBlobType || !pcbResult) return NTE_INVALID_PARAMETER;
        const auto* type = findRow(exportTypes, &ExportType::name, pszBlobType);
        if (!type) {
            logError("KSP: Unsupported blob type for export");
            return NTE_NOT_SUPPORTED;
        }
        if (!type->write) return NTE_NOT_SUPPORTED;
        if (key->publicKey.empty()) fetchPublicKey(*provider, *key);
        if (key->publicKey.empty()) {
            logError("KSP: No public key data available for export");
            return NTE_BAD_KEY;
        }
        const ByteView publicKey = key->publicKey.view();
        const SECURITY_STATUS status = putProperty({pbOutput, cbOutput, pcbResult}, type->write(publicKey));
        if (status == statusDone && pbOutput && type->logged) logDebug("KSP: Public key exported, bits=", publicKey.size() * 8);
        return status;
    });
}

} // namespace quelta
