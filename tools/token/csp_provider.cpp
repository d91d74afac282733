#include "tools/token/csp_provider.h"

#include "base/provider_name.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"

#include <algorithm>
#include <map>

namespace quelta::tools {

namespace {

CryptContext tryAcquire(const char* container, DWORD flags)
{
    CryptContext context;
    CryptAcquireContextA(context.out(), container, providerName, PROV_RSA_FULL, flags);
    return context;
}

CryptContext acquire(const char* container, DWORD flags)
{
    CryptContext context = tryAcquire(container, flags);
    if (!context) failOpening("can't open the token", GetLastError());
    return context;
}

std::vector<std::string> containers(HCRYPTPROV context)
{
    std::vector<std::string> names;
    // Every call moves the position, even a size query, so the buffer is large from the start.
    char name[256];
    auto size = static_cast<DWORD>(sizeof name);
    for (DWORD flag = CRYPT_FIRST; CryptGetProvParam(context, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &size, flag);) {
        names.emplace_back(name);
        flag = CRYPT_NEXT;
        size = sizeof name;
    }
    if (GetLastError() != ERROR_NO_MORE_ITEMS) failWithLastError("can't list the token's keys");
    return names;
}

DWORD keySpecOf(HCRYPTPROV context)
{
    DWORD spec = 0;
    DWORD size = sizeof spec;
    return CryptGetProvParam(context, PP_KEYSPEC, reinterpret_cast<BYTE*>(&spec), &size, 0) ? spec : 0;
}

CryptKey userKey(HCRYPTPROV context, DWORD spec)
{
    CryptKey key;
    CryptGetUserKey(context, spec, key.out());
    return key;
}

// Returns 0 if the provider does not answer.
DWORD keyParameter(const CryptKey& key, DWORD parameter)
{
    DWORD value = 0;
    DWORD size = sizeof value;
    return key && CryptGetKeyParam(key.get(), parameter, reinterpret_cast<BYTE*>(&value), &size, 0) ? value : 0;
}

CertificateContext certificateOf(const CryptKey& key)
{
    return parseCertificate(
        fetched([&](BYTE* value, DWORD* size) { return key && CryptGetKeyParam(key.get(), KP_CERTIFICATE, value, size, 0); }));
}

void describeAlgorithm(KeyEntry& key, const CryptKey& handle)
{
    if (const auto kind = key.certificate ? publicKeyKind(*key.certificate) : std::nullopt) {
        key.algorithm = nameOf(*kind);
        key.bits = kind->bits;
        return;
    }
    const DWORD algorithm = keyParameter(handle, KP_ALGID);
    key.bits = keyParameter(handle, KP_KEYLEN);
    key.algorithm = algorithm == CALG_RSA_SIGN || algorithm == CALG_RSA_KEYX ? "RSA" : "P-" + std::to_string(key.bits);
}

// Returns the certificates of the context's container; none if the provider does not answer.
std::vector<Bytes> chainOf(HCRYPTPROV context)
{
    const Bytes pkcs7 =
        fetched([&](BYTE* value, DWORD* size) { return CryptGetProvParam(context, PP_CERTCHAIN, value, size, 0); });
    CRYPT_DATA_BLOB blob = blobOf(pkcs7);
    const CertificateStore store(CertOpenStore(CERT_STORE_PROV_PKCS7, certificateEncoding, 0, 0, &blob));
    std::vector<Bytes> found;
    if (!store) return found;
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(store.get(), certificate)))
        found.push_back(toBytes(encodedOf(*certificate)));
    return found;
}

class CryptoApiToken : public TokenProvider {
public:
    CryptoApiToken() : first_(acquire(nullptr, CRYPT_VERIFYCONTEXT)) {}

    std::vector<KeyEntry> keys() override
    {
        std::vector<KeyEntry> found;
        for (const std::string& name : containers(first_.get())) {
            const HCRYPTPROV context = contextOf(name);
            const CryptKey signing = userKey(context, AT_SIGNATURE);
            const CryptKey exchange = userKey(context, AT_KEYEXCHANGE);
            KeyEntry key;
            key.name = name;
            key.certificate = certificateOf(signing ? signing : exchange);
            // This type of provider uses only RSA, and signs with another key if the container's key may not sign.
            describeAlgorithm(key, signing ? signing : exchange);
            const bool rsa = key.algorithm == "RSA";
            key.keySpec = keySpecOf(context);
            key.canSign = rsa && key.keySpec == AT_SIGNATURE;
            key.canDecrypt = rsa && (keyParameter(exchange, KP_PERMISSIONS) & CRYPT_DECRYPT);
            found.push_back(std::move(key));
        }
        return found;
    }

    void usePin(const std::string& pin) override
    {
        if (!CryptSetProvParam(first_.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0))
            failWithLastError("can't log in to the token");
    }

    std::vector<Bytes> chain(const KeyEntry& key) override { return chainOf(contextOf(key.name)); }

    Bytes sign(const KeyEntry& key, const KnownDigest& hash, ByteView data) override
    {
        CryptHash hashing;
        if (!CryptCreateHash(contextOf(key.name), hash.algId, 0, 0, hashing.out()) ||
            !CryptHashData(hashing.get(), data.data(), static_cast<DWORD>(data.size()), 0))
            failWithLastError("the token can't hash");
        Bytes signature = fetched(
            [&](BYTE* value, DWORD* size) { return CryptSignHashW(hashing.get(), AT_SIGNATURE, nullptr, 0, value, size); });
        if (signature.empty()) failWithLastError("can't sign");
        std::ranges::reverse(signature);
        return signature;
    }

    Wiped<Bytes> unwrap(const KeyEntry& key, ByteView wrapped, bool oaep) override
    {
        const CryptKey exchange = userKey(contextOf(key.name), AT_KEYEXCHANGE);
        if (!exchange) failWithLastError("can't use key " + key.name);
        Wiped<Bytes> data(wrapped.rbegin(), wrapped.rend());
        auto size = static_cast<DWORD>(data->size());
        if (!CryptDecrypt(exchange.get(), 0, TRUE, oaep ? CRYPT_OAEP : 0, data->data(), &size))
            failWithLastError("can't decrypt");
        data->resize(size);
        return data;
    }

private:
    // Returns the context of a key's container. It stays open as long as this object lives.
    HCRYPTPROV contextOf(const std::string& container)
    {
        const auto known = contexts_.find(container);
        if (known != contexts_.end()) return known->second.get();
        return contexts_.emplace(container, acquire(container.c_str(), 0)).first->second.get();
    }

    // Stays open: the module keeps the PIN only while it is loaded, and a context keeps it loaded.
    CryptContext first_;
    std::map<std::string, CryptContext> contexts_;
};

} // namespace

std::unique_ptr<TokenProvider> openCsp()
{
    return std::make_unique<CryptoApiToken>();
}

std::optional<std::vector<std::string>> keysIfPluggedIn(CryptContext& held)
{
    CryptContext now = tryAcquire(nullptr, CRYPT_VERIFYCONTEXT);
    if (!now) return std::nullopt;
    held = std::move(now);
    return containers(held.get());
}

std::vector<Bytes> chainFromCsp(const std::string& container)
{
    const CryptContext context = tryAcquire(container.c_str(), 0);
    return context ? chainOf(context.get()) : std::vector<Bytes>();
}

} // namespace quelta::tools
