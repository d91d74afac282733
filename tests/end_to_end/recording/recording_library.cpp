#include "end_to_end/recording/recording_library.h"

#include "token/device_functions.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

using namespace quelta;
using namespace quelta::test;

namespace {

std::mutex callsMutex;

template <class... Arguments>
int record(const char* function, const Arguments&... arguments)
{
    const std::string call = callText(function, arguments...);
    auto& calls = recordingLibrary()->calls;
    const std::lock_guard lock(callsMutex);
    if (std::ranges::find(calls, call) == calls.end()) calls.push_back(call);
    return 0;
}

// The caller frees it.
int give(unsigned char** plain, int* length)
{
    *length = 16;
    *plain = static_cast<unsigned char*>(std::calloc(16, 1));
    return 0;
}

QueltaKeyPair keyPair()
{
    QueltaKeyPair pair{};
    std::memset(pair.keyId, 0x11, sizeof pair.keyId);
    std::memset(pair.publicKey, 0xC1, 256);
    pair.publicKeyLength = 256;
    pair.usage = usageBoth;
    pair.algorithm = algorithmRsa2048;
    pair.hardware = 1;
    return pair;
}

std::vector<QueltaKeyPair> keyPairs{keyPair()};
std::vector<QueltaCertificate> certificates;
std::vector<QueltaSymmetricKey> aesKeys;

} // namespace

extern "C" {

RecordingLibrary* recordingLibrary()
{
    static RecordingLibrary library{{}, deviceLibrary()};
    return &library;
}

int quelta_init(int first, int second)
{
    return record(__func__, first, second);
}
int quelta_initDevice(const char* deviceId, bool flag, void* libContext)
{
    return record(__func__, deviceId, flag, libContext);
}
std::vector<std::string> quelta_getConnectedDeviceList(bool flag, void* libContext)
{
    record(__func__, flag, libContext);
    return {"DEVICE"};
}
TokenInfo quelta_getTokenInfo(const char* deviceId, void* libContext)
{
    record(__func__, deviceId, libContext);
    return {};
}
int quelta_validatePassword(const char* deviceId, const char* pin, int mode, int* remaining, void* libContext)
{
    return record(__func__, deviceId, pin, mode, remaining, libContext);
}
std::vector<QueltaKeyPair>& quelta_getKeyPairList(const char* deviceId, void* libContext)
{
    record(__func__, deviceId, libContext);
    return keyPairs;
}
std::vector<QueltaCertificate>& quelta_getCertificateList(const char* deviceId, void* libContext)
{
    record(__func__, deviceId, libContext);
    return certificates;
}
std::vector<QueltaSymmetricKey>& quelta_getAesKeyList(const char* deviceId, void* libContext)
{
    record(__func__, deviceId, libContext);
    return aesKeys;
}
int quelta_getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void* libContext)
{
    return record(__func__, der, length, details, libContext);
}
int quelta_generateKeyPair(const char* deviceId, const char* pin, QueltaKeyPair* inOut, void* libContext)
{
    return record(__func__, deviceId, pin, inOut, libContext);
}
int quelta_deleteKeyPair(const char* deviceId, const unsigned char* keyId, const char* pin, bool hardware, void* libContext)
{
    return record(__func__, deviceId, keyId, pin, hardware, libContext);
}
int quelta_importCertificate(const char* deviceId, const char* pin, QueltaCertificate* inOut, void* libContext)
{
    return record(__func__, deviceId, pin, inOut, libContext);
}
int quelta_importAesKey(const char* deviceId, const char* pin, QueltaSymmetricKey* inOut, void* libContext)
{
    return record(__func__, deviceId, pin, inOut, libContext);
}
int quelta_signHash(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* hash, int hashLength,
                    unsigned char* signature, int* signatureLength, bool flag, void* libContext)
{
    return record(__func__, deviceId, keyId, pin, hash, hashLength, signature, signatureLength, flag, libContext);
}
int quelta_verifySignatureHash(unsigned int algorithm, const char* deviceId, const unsigned char* hash, int hashLength,
                               const unsigned char* publicKey, int publicKeyLength, const unsigned char* signature,
                               int signatureLength, void* libContext)
{
    return record(__func__, algorithm, deviceId, hash, hashLength, publicKey, publicKeyLength, signature, signatureLength,
                  libContext);
}
int quelta_decrypt(const char* deviceId, const unsigned char* keyId, const char* pin, const unsigned char* cipher,
                   int cipherLength, unsigned char** plain, int* plainLength, bool hardware, void* libContext)
{
    record(__func__, deviceId, keyId, pin, cipher, cipherLength, plain, plainLength, hardware, libContext);
    return give(plain, plainLength);
}
int quelta_encrypt(EncryptionType type, PaddingMode padding, const unsigned char* data, int length, unsigned char* out,
                   int* outLength, const unsigned char* publicKey, int publicKeyLength, void* libContext)
{
    return record(__func__, type, padding, data, length, out, outLength, publicKey, publicKeyLength, libContext);
}
int quelta_decrypt_aes(const char* deviceId, const unsigned char* keyReference, int keyReferenceLength, const unsigned char* data,
                       int length, unsigned char** plain, int* plainLength, bool flag, const unsigned char* iv, int ivLength,
                       void* libContext)
{
    record(__func__, deviceId, keyReference, keyReferenceLength, data, length, plain, plainLength, flag, iv, ivLength,
           libContext);
    return give(plain, plainLength);
}
int quelta_decryptSymetric(const char* deviceId, const unsigned char* data, int length, unsigned char* out, int* outLength,
                           const unsigned char* iv, int ivLength, const unsigned char* key, int keyLength, void* libContext)
{
    return record(__func__, deviceId, data, length, out, outLength, iv, ivLength, key, keyLength, libContext);
}
int quelta_initHash(const char* deviceId, int algorithm, void** hash, void* libContext)
{
    return record(__func__, deviceId, algorithm, hash, libContext);
}
int quelta_updateHash(void* hash, const unsigned char* data, int length, void* libContext)
{
    return record(__func__, hash, data, length, libContext);
}
int quelta_finalHash(void* hash, unsigned char* out, int* length, void* libContext)
{
    *length = 32;
    return record(__func__, hash, out, length, libContext);
}
int quelta_generateRamdomNumber(const char* deviceId, int length, unsigned char* out, bool flag, void* libContext)
{
    return record(__func__, deviceId, length, out, flag, libContext);
}

} // extern "C"
