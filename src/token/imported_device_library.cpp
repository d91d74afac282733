#include "token/device_functions.h"

#include "token/device_library.h"

namespace quelta {

namespace {

class ImportedDeviceLibrary final : public DeviceLibrary {
public:
    int init(int first, int second) override { return quelta_init(first, second); }
    int initDevice(const char* deviceId, bool flag, void* libContext) override
    {
        return quelta_initDevice(deviceId, flag, libContext);
    }
    std::vector<std::string> getConnectedDeviceList(bool flag, void* libContext) override
    {
        return quelta_getConnectedDeviceList(flag, libContext);
    }
    TokenInfo getTokenInfo(const char* deviceId, void* libContext) override { return quelta_getTokenInfo(deviceId, libContext); }
    int validatePassword(const char* deviceId, const char* pin, int mode, int* remaining, void* libContext) override
    {
        return quelta_validatePassword(deviceId, pin, mode, remaining, libContext);
    }
    std::vector<QueltaKeyPair>& getKeyPairList(const char* deviceId, void* libContext) override
    {
        return quelta_getKeyPairList(deviceId, libContext);
    }
    std::vector<QueltaCertificate>& getCertificateList(const char* deviceId, void* libContext) override
    {
        return quelta_getCertificateList(deviceId, libContext);
    }
    std::vector<QueltaSymmetricKey>& getAesKeyList(const char* deviceId, void* libContext) override
    {
        return quelta_getAesKeyList(deviceId, libContext);
    }
    int getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* libContext) override
    {
        return quelta_getCertificateDetails(der, length, details, libContext);
    }
    int generateKeyPair(const char* deviceId, const char* pin, QueltaKeyPair* inOut, void* libContext) override
    {
        return quelta_generateKeyPair(deviceId, pin, inOut, libContext);
    }
    int deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware, void* libContext) override
    {
        return quelta_deleteKeyPair(deviceId, keyId, pin, hardware, libContext);
    }
    int importCertificate(const char* deviceId, const char* pin, QueltaCertificate* inOut, void* libContext) override
    {
        return quelta_importCertificate(deviceId, pin, inOut, libContext);
    }
    int importAesKey(const char* deviceId, const char* pin, QueltaSymmetricKey* inOut, void* libContext) override
    {
        return quelta_importAesKey(deviceId, pin, inOut, libContext);
    }
    int signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                 unsigned char* signature, int* signatureLength, bool flag, void* libContext) override
    {
        return quelta_signHash(deviceId, keyId, pin, hash, hashLength, signature, signatureLength, flag, libContext);
    }
    int verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                            const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                            int signatureLength, void* libContext) override
    {
        return quelta_verifySignatureHash(algorithm, deviceId, hash, hashLength, publicKey, publicKeyLength, signature,
                                          signatureLength, libContext);
    }
    int decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher, int cipherLength,
                unsigned char** plain, int* plainLength, bool hardware, void* libContext) override
    {
        return quelta_decrypt(deviceId, keyId, pin, cipher, cipherLength, plain, plainLength, hardware, libContext);
    }
    int encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int length, unsigned char* out,
                int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext) override
    {
        return quelta_encrypt(type, padding, data, length, out, outLength, publicKey, publicKeyLength, libContext);
    }
    int decryptAes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                   int length, unsigned char** plain, int* plainLength, bool flag, const unsigned char* iv, int ivLength,
                   void* libContext) override
    {
        return quelta_decrypt_aes(deviceId, keyReference, keyReferenceLength, data, length, plain, plainLength, flag, iv,
                                  ivLength, libContext);
    }
    int decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                        const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void* libContext) override
    {
        return quelta_decryptSymetric(deviceId, data, length, out, outLength, iv, ivLength, key, keyLength, libContext);
    }
    int initHash(const char* deviceId, int algorithm, void** hash, void* libContext) override
    {
        return quelta_initHash(deviceId, algorithm, hash, libContext);
    }
    int updateHash(void* hash, const unsigned char* data, int length, void* libContext) override
    {
        return quelta_updateHash(hash, data, length, libContext);
    }
    int finalHash(void* hash, unsigned char* out, int* length, void* libContext) override
    {
        return quelta_finalHash(hash, out, length, libContext);
    }
    int generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool flag, void* libContext) override
    {
        return quelta_generateRamdomNumber(deviceId, length, out, flag, libContext);
    }
};

constinit ImportedDeviceLibrary importedLibrary;

} // namespace

DeviceLibrary& deviceLibrary()
{
    return importedLibrary;
}

} // namespace quelta
