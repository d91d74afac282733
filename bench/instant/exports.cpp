#include "instant/instant_exports.h"
#include "instant/instant_token.h"

#include "token/device_functions.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

using namespace quelta;

constexpr const char deviceId[] = "INSTANT-TOKEN";

bench::InstantToken held = bench::instantToken(1, 3, false);
int hashes = 0;

int give(unsigned char* out, int* length, int size)
{
    std::memset(out, 0x5A, static_cast<std::size_t>(size));
    *length = size;
    return 0;
}

// The module releases the block with free.
int giveAllocated(unsigned char** out, int* length, int size)
{
    *out = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(size)));
    return *out ? give(*out, length, size) : 1;
}

} // namespace

extern "C" {

void bench_setToken(unsigned keys, unsigned depth, bool issuersFirst)
{
    held = bench::instantToken(keys, depth, issuersFirst);
}

int quelta_init(int, int)
{
    return 0;
}
int quelta_initDevice(const char*, bool, void*)
{
    return 0;
}
std::vector<std::string> quelta_getConnectedDeviceList(bool, void*)
{
    return {deviceId};
}
TokenInfo quelta_getTokenInfo(const char*, void*)
{
    TokenInfo info{};
    info.serialNumber = deviceId;
    return info;
}
int quelta_validatePassword(const char*, const char*, int, int* remaining, void*)
{
    *remaining = 10;
    return 0;
}
std::vector<QueltaKeyPair>& quelta_getKeyPairList(const char*, void*)
{
    return held.keyPairs;
}
std::vector<QueltaCertificate>& quelta_getCertificateList(const char*, void*)
{
    return held.certificates;
}
std::vector<QueltaSymmetricKey>& quelta_getAesKeyList(const char*, void*)
{
    return held.aesKeys;
}
int quelta_getCertificateDetails(const unsigned char* der, int length, CertificateDetails& details, void*)
{
    const auto found =
        held.publicKeys.find(std::string_view(reinterpret_cast<const char*>(der), static_cast<std::size_t>(length)));
    if (found == held.publicKeys.end()) return 1;
    details.publicKey = found->second;
    return 0;
}
int quelta_generateKeyPair(const char*, const char*, QueltaKeyPair*, void*)
{
    return 1;
}
int quelta_deleteKeyPair(const char*, const unsigned char*, const char*, bool, void*)
{
    return 1;
}
int quelta_importCertificate(const char*, const char*, QueltaCertificate*, void*)
{
    return 1;
}
int quelta_importAesKey(const char*, const char*, QueltaSymmetricKey*, void*)
{
    return 1;
}
int quelta_signHash(const char*, const unsigned char*, const char*, const unsigned char*, int, unsigned char* signature,
                    int* length, bool, void*)
{
    return give(signature, length, 256);
}
int quelta_verifySignatureHash(unsigned int, const char*, const unsigned char*, int, const unsigned char*, int,
                               const unsigned char*, int, void*)
{
    return 0;
}
int quelta_decrypt(const char*, const unsigned char*, const char*, const unsigned char*, int, unsigned char** plain, int* length,
                   bool, void*)
{
    return giveAllocated(plain, length, 32);
}
int quelta_encrypt(EncryptionType, PaddingMode, const unsigned char*, int, unsigned char* out, int* outLength,
                   const unsigned char*, int, void*)
{
    return give(out, outLength, 256);
}
int quelta_decrypt_aes(const char*, const unsigned char*, int, const unsigned char*, int, unsigned char** plain, int* length,
                       bool, const unsigned char*, int, void*)
{
    return giveAllocated(plain, length, 16);
}
int quelta_decryptSymetric(const char*, const unsigned char*, int length, unsigned char* out, int* outLength,
                           const unsigned char*, int, const unsigned char*, int, void*)
{
    return give(out, outLength, length);
}
int quelta_initHash(const char*, int, void** hash, void*)
{
    *hash = &hashes;
    return 0;
}
int quelta_updateHash(void*, const unsigned char*, int, void*)
{
    return 0;
}
int quelta_finalHash(void*, unsigned char* out, int* length, void*)
{
    return give(out, length, std::min(*length, 32));
}
int quelta_generateRamdomNumber(const char*, int length, unsigned char* out, bool, void*)
{
    std::memset(out, 0x5A, static_cast<std::size_t>(length));
    return 0;
}

} // extern "C"
