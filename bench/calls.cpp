#include "calls.h"

#include "base/text.h"
#include "encoding/rsa_public_key.h"
#include "token/device_library.h"
#include "token/key_match.h"
#include "token/record_fields.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace quelta::bench {

namespace {

constexpr const char cryptoApi[] = "CryptoAPI";
constexpr const char keyStorage[] = "key storage";

constexpr std::size_t randomBytes = 32;

void expectResult(int result, const char* call)
{
    if (result) throw std::runtime_error(std::string(call) + " of the device library failed: " + std::to_string(result));
}

int sizeOf(ByteView bytes)
{
    return static_cast<int>(bytes.size());
}

} // namespace

OpenModule::OpenModule(const std::string& pin) : csp_{module_}, pin_(pin)
{
    expectDone(ksp().OpenProvider(&provider_, L"", 0), "KSPOpenProvider");
    const auto devices = deviceLibrary().getConnectedDeviceList(false, nullptr);
    if (devices.empty()) throw std::runtime_error("no token is connected");
    device_ = devices.front();
    const auto& pairs = deviceLibrary().getKeyPairList(device_.c_str(), nullptr);
    if (pairs.empty()) throw std::runtime_error("the token has no key pair");
    container_ = keyName(pairs.back());
    keyId_ = toBytes(ByteView(pairs.back().keyId));
    publicKey_ = publicKeyForDevice(publicKeyOf(pairs.back()));

    Bytes given = toBytes(std::string_view(pin_));
    given.push_back(0);
    expectDone(ksp().SetProviderProperty(provider_, L"SmartCardPin", given.data(), static_cast<DWORD>(given.size()), 0),
               "giving the PIN");
    context_ = acquire();
    expectTrue(csp_.getUserKey(context_, AT_SIGNATURE, &key_), "CPGetUserKey");
    storedKey_ = openKey();

    hashAndSign();
    Bytes plain(512);
    std::ranges::copy(digest_, plain.begin());
    DWORD length = static_cast<DWORD>(digest_.size());
    expectTrue(csp_.encrypt(context_, key_, 0, TRUE, 0, plain.data(), &length, static_cast<DWORD>(plain.size())), "CPEncrypt");
    plain.resize(length);
    cipher_ = plain;
    storedCipher_.assign(cipher_.rbegin(), cipher_.rend());
    storedSignature_.resize(signature_.size());
    expectDone(ksp().SignHash(provider_, storedKey_, nullptr, digest_.data(), static_cast<DWORD>(digest_.size()),
                              storedSignature_.data(), static_cast<DWORD>(storedSignature_.size()), &length, 0),
               "KSPSignHash");
    storedSignature_.resize(length);
}

OpenModule::~OpenModule()
{
    ksp().FreeKey(provider_, storedKey_);
    ksp().FreeProvider(provider_);
    csp_.destroyKey(context_, key_);
    csp_.releaseContext(context_, 0);
}

HCRYPTPROV OpenModule::acquire() const
{
    HCRYPTPROV context = 0;
    BYTE functions = 0;
    expectTrue(csp_.acquireContext(&context, container_.c_str(), 0, &functions), "CPAcquireContext");
    return context;
}

NCRYPT_KEY_HANDLE OpenModule::openKey() const
{
    NCRYPT_KEY_HANDLE key = 0;
    expectDone(ksp().OpenKey(provider_, &key, toWide(container_).c_str(), 0, 0), "KSPOpenKey");
    return key;
}

HCRYPTHASH OpenModule::hashOf(ByteView data) const
{
    HCRYPTHASH hash = 0;
    expectTrue(csp_.createHash(context_, CALG_SHA_256, 0, 0, &hash), "CPCreateHash");
    expectTrue(csp_.hashData(context_, hash, data.data(), static_cast<DWORD>(data.size()), 0), "CPHashData");
    return hash;
}

void OpenModule::digest(ByteView data)
{
    const HCRYPTHASH hash = hashOf(data);
    DWORD length = static_cast<DWORD>(work_.size());
    expectTrue(csp_.getHashParam(context_, hash, HP_HASHVAL, work_.data(), &length, 0), "CPGetHashParam");
    csp_.destroyHash(context_, hash);
}

void OpenModule::hashAndSign()
{
    const HCRYPTHASH hash = hashOf(digest_);
    signature_.resize(512);
    DWORD length = static_cast<DWORD>(signature_.size());
    expectTrue(csp_.signHash(context_, hash, AT_SIGNATURE, nullptr, 0, signature_.data(), &length), "CPSignHash");
    signature_.resize(length);
    csp_.destroyHash(context_, hash);
}

void OpenModule::hashAndVerify()
{
    const HCRYPTHASH hash = hashOf(digest_);
    expectTrue(csp_.verifySignature(context_, hash, signature_.data(), static_cast<DWORD>(signature_.size()), key_, nullptr, 0),
               "CPVerifySignature");
    csp_.destroyHash(context_, hash);
}

void OpenModule::bareHash(ByteView data)
{
    void* hash = nullptr;
    constexpr int sha256 = 3;
    expectResult(deviceLibrary().initHash(device_.c_str(), sha256, &hash, nullptr), "initHash");
    expectResult(deviceLibrary().updateHash(hash, data.data(), sizeOf(data), nullptr), "updateHash");
    int length = 32;
    expectResult(deviceLibrary().finalHash(hash, work_.data(), &length, nullptr), "finalHash");
}

void OpenModule::bareSign()
{
    int length = 512;
    expectResult(deviceLibrary().signHash(device_.c_str(), keyId_.data(), pin_.c_str(), digest_.data(), sizeOf(digest_),
                                          work_.data(), &length, false, nullptr),
                 "signHash");
}

void OpenModule::bareVerify()
{
    expectResult(deviceLibrary().verifySignatureHash(2, device_.c_str(), digest_.data(), sizeOf(digest_), publicKey_.data(),
                                                     sizeOf(publicKey_), storedSignature_.data(), sizeOf(storedSignature_),
                                                     nullptr),
                 "verifySignatureHash");
}

void OpenModule::bareDecrypt()
{
    unsigned char* plain = nullptr;
    int length = 0;
    expectResult(deviceLibrary().decrypt(device_.c_str(), keyId_.data(), pin_.c_str(), storedCipher_.data(),
                                         sizeOf(storedCipher_), &plain, &length, true, nullptr),
                 "decrypt");
    std::free(plain);
}

std::vector<Operation> OpenModule::operations()
{
    const auto listKeys = [this] { deviceLibrary().getKeyPairList(device_.c_str(), nullptr); };
    const auto listDevices = [] { deviceLibrary().getConnectedDeviceList(false, nullptr); };
    const auto listCertificates = [this] {
        deviceLibrary().initDevice(device_.c_str(), true, nullptr);
        deviceLibrary().getCertificateList(device_.c_str(), nullptr);
    };
    const auto work = [this] { return static_cast<DWORD>(work_.size()); };

    return {
        {cryptoApi, "acquire and release", [this] { csp_.releaseContext(acquire(), 0); },
         [=] {
             listDevices();
             listKeys();
         }},
        {cryptoApi, "get and destroy the key",
         [this] {
             HCRYPTKEY key = 0;
             expectTrue(csp_.getUserKey(context_, AT_SIGNATURE, &key), "CPGetUserKey");
             csp_.destroyKey(context_, key);
         },
         listKeys},
        {cryptoApi, "certificate of the key",
         [=, this, length = DWORD{0}]() mutable {
             length = work();
             expectTrue(csp_.getKeyParam(context_, key_, KP_CERTIFICATE, work_.data(), &length, 0), "CPGetKeyParam");
         },
         listCertificates},
        {cryptoApi, "size of a parameter",
         [this] {
             DWORD length = 0;
             expectTrue(csp_.getProvParam(context_, PP_NAME, nullptr, &length, 0), "CPGetProvParam");
         },
         nullptr},
        {cryptoApi, "random, 32 bytes",
         [this] { expectTrue(csp_.genRandom(context_, randomBytes, work_.data()), "CPGenRandom"); },
         [this] { deviceLibrary().generateRamdomNumber(device_.c_str(), randomBytes, work_.data(), true, nullptr); }},
        {cryptoApi, "hash, 64 KiB", [this] { digest(large_); }, [this] { bareHash(large_); }},
        {cryptoApi, "hash and sign", [this] { hashAndSign(); },
         [=, this] {
             bareHash(digest_);
             listKeys();
             bareSign();
         }},
        {cryptoApi, "hash and verify", [this] { hashAndVerify(); },
         [this] {
             bareHash(digest_);
             // This is a signature of the digest. The measurement needs no other.
             bareVerify();
         }},
        {cryptoApi, "decrypt",
         [this] {
             std::ranges::copy(cipher_, work_.begin());
             DWORD length = static_cast<DWORD>(cipher_.size());
             expectTrue(csp_.decrypt(context_, key_, 0, TRUE, 0, work_.data(), &length), "CPDecrypt");
         },
         [this] { bareDecrypt(); }},
        {keyStorage, "open and free the provider",
         [this] {
             NCRYPT_PROV_HANDLE provider = 0;
             expectDone(ksp().OpenProvider(&provider, L"", 0), "KSPOpenProvider");
             ksp().FreeProvider(provider);
         },
         listDevices},
        {keyStorage, "open and free the key", [this] { ksp().FreeKey(provider_, openKey()); }, listKeys},
        {keyStorage, "certificate of the key",
         [=, this] {
             DWORD length = 0;
             expectDone(ksp().GetKeyProperty(provider_, storedKey_, L"SmartCardKeyCertificate", work_.data(), work(), &length, 0),
                        "KSPGetKeyProperty");
         },
         listCertificates},
        {keyStorage, "size of a property",
         [this] {
             DWORD length = 0;
             expectDone(ksp().GetKeyProperty(provider_, storedKey_, L"Length", nullptr, 0, &length, 0), "KSPGetKeyProperty");
         },
         nullptr},
        {keyStorage, "sign",
         [=, this] {
             DWORD length = 0;
             expectDone(ksp().SignHash(provider_, storedKey_, nullptr, digest_.data(), static_cast<DWORD>(digest_.size()),
                                       work_.data(), work(), &length, 0),
                        "KSPSignHash");
         },
         [this] { bareSign(); }},
        {keyStorage, "verify",
         [this] {
             expectDone(ksp().VerifySignature(provider_, storedKey_, nullptr, digest_.data(), static_cast<DWORD>(digest_.size()),
                                              storedSignature_.data(), static_cast<DWORD>(storedSignature_.size()), 0),
                        "KSPVerifySignature");
         },
         [this] { bareVerify(); }},
        {keyStorage, "decrypt",
         [=, this] {
             DWORD length = 0;
             expectDone(ksp().Decrypt(provider_, storedKey_, storedCipher_.data(), static_cast<DWORD>(storedCipher_.size()),
                                      nullptr, work_.data(), work(), &length, NCRYPT_PAD_PKCS1_FLAG),
                        "KSPDecrypt");
         },
         [this] { bareDecrypt(); }},
    };
}

} // namespace quelta::bench
