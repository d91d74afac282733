// Interface to the maker's device library: one member for each function that QueltaDSCLibrary.dll exports under the prefix
// "quelta_". The names keep the library's spelling. An int result is 0 for success. The last argument is a library context, which
// may be null. Lists are returned by reference to storage that the next call may overwrite, so copy them at once.
//
// The device monitor polls getConnectedDeviceList on a thread that the module's unload waits for, and the unloading thread holds
// the loader lock. So nothing that a poll or a log line reaches, in the module or in the library, may need the loader: no
// LoadLibrary, GetModuleHandle or GetProcAddress, and no function that is looked up at its first call.
#pragma once

#include "token/device_records.h"

#include <string>
#include <vector>

namespace quelta {

class DeviceLibrary {
public:
    // Starts the library. The arguments are always 0 and 2; their meaning is not known.
    virtual int init(int first, int second) = 0;
    // Opens the token. The flag is false when a provider is opened and true before a certificate look-up. Its meaning is not
    // known.
    virtual int initDevice(const char* deviceId, bool flag, void* libContext) = 0;
    // Returns the identifiers of the connected tokens. The flag is always false.
    virtual std::vector<std::string> getConnectedDeviceList(bool flag, void* libContext) = 0;
    virtual TokenInfo getTokenInfo(const char* deviceId, void* libContext) = 0;
    // Checks the PIN. `mode` is always 1. A refusal writes the number of attempts left; some refusals write nothing.
    virtual int validatePassword(const char* deviceId, const char* pin, int mode, int* remaining, void* libContext) = 0;

    virtual std::vector<QueltaKeyPair>& getKeyPairList(const char* deviceId, void* libContext) = 0;
    virtual std::vector<QueltaCertificate>& getCertificateList(const char* deviceId, void* libContext) = 0;
    virtual std::vector<QueltaSymmetricKey>& getAesKeyList(const char* deviceId, void* libContext) = 0;
    virtual int getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* libContext) = 0;

    virtual int generateKeyPair(const char* deviceId, const char* pin, QueltaKeyPair* inOut, void* libContext) = 0;
    virtual int deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware,
                              void* libContext) = 0;
    virtual int importCertificate(const char* deviceId, const char* pin, QueltaCertificate* inOut, void* libContext) = 0;
    virtual int importAesKey(const char* deviceId, const char* pin, QueltaSymmetricKey* inOut, void* libContext) = 0;

    // `*signatureLength` is the size of `signature` on the way in, the signature's length on the way out. The flag is false.
    virtual int signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash,
                         int hashLength, unsigned char* signature, int* signatureLength, bool flag, void* libContext) = 0;
    virtual int verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                                    const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                                    int signatureLength, void* libContext) = 0;
    // The library allocates `*plain` with malloc, even for some failures.
    virtual int decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher,
                        int cipherLength, unsigned char** plain, int* plainLength, bool hardware, void* libContext) = 0;
    // `*outLength` is 0 on the way in: the library is not told the size of `out`.
    virtual int encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int length, unsigned char* out,
                        int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext) = 0;
    // Decrypts with an AES key of the token. The flag is the flag byte of the key's record. Allocates like decrypt.
    virtual int decryptAes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength,
                           const unsigned char* data, int length, unsigned char** plain, int* plainLength, bool flag,
                           const unsigned char* iv, int ivLength, void* libContext) = 0;
    // Decrypts with the given key. `out` is as long as the data; the library is not told the size of `out`.
    virtual int decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                                const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength,
                                void* libContext) = 0;

    virtual int initHash(const char* deviceId, int algorithm, void** hash, void* libContext) = 0;
    virtual int updateHash(void* hash, const unsigned char* data, int length, void* libContext) = 0;
    // `*length` is the capacity of `out` on the way in, at most 128, and the digest's length on the way out.
    virtual int finalHash(void* hash, unsigned char* out, int* length, void* libContext) = 0;
    // Fills `length` bytes. The flag is true while the hardware generator is switched off (PP_USE_HARDWARE_RNG is 0).
    virtual int generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool flag, void* libContext) = 0;

protected:
    // Nobody deletes through this type. The trivial destructor lets the module's static instance be called until the end.
    ~DeviceLibrary() = default;
};

// Returns the library in use. The module's definition forwards to the imported functions; the tests define their own.
DeviceLibrary& deviceLibrary();

} // namespace quelta
