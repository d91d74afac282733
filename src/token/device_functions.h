// The functions that QueltaDSCLibrary.dll exports, with the types of their binary contract. The module imports them; the software
// token defines them. Standard-library types cross this boundary, so a module for the maker's own binary must be built with the
// maker's compiler and its release runtime.
#pragma once

#include "token/device_records.h"

// The size is the same in the release runtimes of both compilers. The assertion also instantiates the class: Microsoft's compiler
// needs that before a function with C linkage can return the class (C2526).
static_assert(sizeof(std::vector<std::string>) == 24);

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#elif defined(_MSC_VER)
#pragma warning(push)
#pragma warning(disable : 4190) // a function with C linkage returns a C++ class: the contract requires it
#endif

extern "C" {

int quelta_init(int, int);
int quelta_initDevice(const char* deviceId, bool, void* libContext);
std::vector<std::string> quelta_getConnectedDeviceList(bool, void* libContext);
quelta::TokenInfo quelta_getTokenInfo(const char* deviceId, void* libContext);
int quelta_validatePassword(const char* deviceId, const char* pin, int, int* remaining, void* libContext);
std::vector<quelta::QueltaKeyPair>& quelta_getKeyPairList(const char* deviceId, void* libContext);
std::vector<quelta::QueltaCertificate>& quelta_getCertificateList(const char* deviceId, void* libContext);
std::vector<quelta::QueltaSymmetricKey>& quelta_getAesKeyList(const char* deviceId, void* libContext);
int quelta_getCertificateDetails(const unsigned char* der, int length, quelta::CertificateDetails& details, void* libContext);
int quelta_generateKeyPair(const char* deviceId, const char* pin, quelta::QueltaKeyPair* inOut, void* libContext);
int quelta_deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware, void* libContext);
int quelta_importCertificate(const char* deviceId, const char* pin, quelta::QueltaCertificate* inOut, void* libContext);
int quelta_importAesKey(const char* deviceId, const char* pin, quelta::QueltaSymmetricKey* inOut, void* libContext);
int quelta_signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                    unsigned char* signature, int* signatureLength, bool, void* libContext);
int quelta_verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                               const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                               int signatureLength, void* libContext);
int quelta_decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher,
                   int cipherLength, unsigned char** plain, int* plainLength, bool hardware, void* libContext);
int quelta_encrypt(quelta::EncryptionType, quelta::PaddingMode, const unsigned char* data, int length, unsigned char* out,
                   int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext);
int quelta_decrypt_aes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                       int length, unsigned char** plain, int* plainLength, bool flag, const unsigned char* iv, int ivLength,
                       void* libContext);
int quelta_decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                           const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void* libContext);
int quelta_initHash(const char* deviceId, int algorithm, void** hash, void* libContext);
int quelta_updateHash(void* hash, const unsigned char* data, int length, void* libContext);
int quelta_finalHash(void* hash, unsigned char* out, int* length, void* libContext);
int quelta_generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool, void* libContext);

} // extern "C"

#if defined(__clang__)
#pragma clang diagnostic pop
#elif defined(_MSC_VER)
#pragma warning(pop)
#endif
