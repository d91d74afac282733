// The functions of QueltaDSCLibrary.dll, as its callers import them.
#pragma once

#include "token/device_records.h"

#include <string>
#include <vector>

extern "C" {
int quelta_init(int first, int second);
int quelta_initDevice(const char* deviceId, bool flag, void* libContext);
std::vector<std::string> quelta_getConnectedDeviceList(bool flag, void* libContext);
quelta::TokenInfo quelta_getTokenInfo(const char* deviceId, void* libContext);
int quelta_validatePassword(const char* deviceId, const char* pin, int mode, int* remaining, void* libContext);

std::vector<quelta::QueltaKeyPair>& quelta_getKeyPairList(const char* deviceId, void* libContext);
std::vector<quelta::QueltaCertificate>& quelta_getCertificateList(const char* deviceId, void* libContext);
std::vector<quelta::QueltaSymmetricKey>& quelta_getAesKeyList(const char* deviceId, void* libContext);
int quelta_getCertificateDetails(const unsigned char* der, int length, quelta::CertificateDetails& details, void* libContext);

int quelta_generateKeyPair(const char* deviceId, const char* pin, quelta::QueltaKeyPair* inOut, void* libContext);
int quelta_deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware, void* libContext);
int quelta_importCertificate(const char* deviceId, const char* pin, quelta::QueltaCertificate* inOut, void* libContext);
int quelta_importAesKey(const char* deviceId, const char* pin, quelta::QueltaSymmetricKey* inOut, void* libContext);

int quelta_signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                    unsigned char* signature, int* signatureLength, bool flag, void* libContext);
int quelta_verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                               const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                               int signatureLength, void* libContext);
int quelta_decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher,
                   int cipherLength, unsigned char** plain, int* plainLength, bool hardware, void* libContext);
int quelta_encrypt(quelta::EncryptionType type, quelta::PaddingMode padding, const unsigned char* data, int length,
                   unsigned char* out, int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext);
int quelta_decrypt_aes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                       int length, unsigned char** plain, int* plainLength, bool flag, const unsigned char* iv, int ivLength,
                       void* libContext);
int quelta_decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                           const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void* libContext);

int quelta_initHash(const char* deviceId, int algorithm, void** hash, void* libContext);
int quelta_updateHash(void* hash, const unsigned char* data, int length, void* libContext);
int quelta_finalHash(void* hash, unsigned char* out, int* length, void* libContext);
int quelta_generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool flag, void* libContext);
}
