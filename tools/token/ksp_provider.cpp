#include "tools/token/ksp_provider.h"

#include "base/provider_name.h"
#include "common/text.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"
#include "tools/token/csp_provider.h"
#include "tools/token/key_storage_module.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace quelta::tools {

namespace {

void require(SECURITY_STATUS status, std::string_view what)
{
    if (status) fail(what, static_cast<unsigned long>(status));
}

class KspProvider : public TokenProvider {
public:
    KspProvider();
    ~KspProvider() override;
    KspProvider(const KspProvider&) = delete;
    KspProvider& operator=(const KspProvider&) = delete;

    std::vector<TokenKey> keys() override;
    void usePin(const std::string& pin) override;
    std::vector<Bytes> chain(const TokenKey& key) override;
    Bytes sign(const TokenKey& key, const KnownDigest& hash, ByteView data) override;
    Bytes unwrap(const TokenKey& key, ByteView wrapped, bool oaep) override;

private:
    std::vector<std::wstring> names();
    NCRYPT_KEY_HANDLE handleOf(const std::string& name);
    // Empty if the key has no such property.
    Bytes property(NCRYPT_KEY_HANDLE key, const wchar_t* name);
    DWORD number(NCRYPT_KEY_HANDLE key, const wchar_t* name);
    std::string algorithmOf(NCRYPT_KEY_HANDLE key);

    KeyStorage storage_;
    const KeyStorageFunctionTable& table_ = storage_.table();
    NCRYPT_PROV_HANDLE provider_ = 0;
    std::map<std::string, NCRYPT_KEY_HANDLE> handles_;
};

KspProvider::KspProvider()
{
    if (const auto status = table_.OpenProvider(&provider_, wideProviderName, 0))
        failOpening("can't open the token", static_cast<unsigned long>(status));
}

KspProvider::~KspProvider()
{
    for (const auto& [name, key] : handles_) table_.FreeKey(provider_, key);
    table_.FreeProvider(provider_);
}

std::vector<std::wstring> KspProvider::names()
{
    std::vector<std::wstring> found;
    PVOID state = nullptr;
    NCryptKeyName* name = nullptr;
    SECURITY_STATUS status = 0;
    while (!(status = table_.EnumKeys(provider_, nullptr, &name, &state, 0))) {
        found.emplace_back(name->pszName);
        table_.FreeBuffer(name);
    }
    table_.FreeBuffer(state);
    if (status != NTE_NO_MORE_ITEMS) require(status, "can't list the token's keys");
    return found;
}

std::vector<TokenKey> KspProvider::keys()
{
    std::vector<TokenKey> found;
    for (const std::wstring& name : names()) {
        TokenKey key;
        key.name = toUtf8(name);
        const NCRYPT_KEY_HANDLE handle = handleOf(key.name);
        key.certificate = parseCertificate(property(handle, L"SmartCardKeyCertificate"));
        const auto kind = key.certificate ? publicKeyKind(*key.certificate) : std::nullopt;
        key.algorithm = kind ? nameOf(*kind) : algorithmOf(handle);
        key.bits = kind ? kind->bits : number(handle, L"Length");
        const DWORD usage = number(handle, L"Key Usage");
        key.canSign = kind && (usage & NCRYPT_ALLOW_SIGNING_FLAG);
        key.canDecrypt = kind && !kind->elliptic && (usage & NCRYPT_ALLOW_DECRYPT_FLAG);
        found.push_back(std::move(key));
    }
    return found;
}

void KspProvider::usePin(const std::string& pin)
{
    std::string text = ansi(pin);
    require(table_.SetProviderProperty(provider_, L"SmartCardPin", reinterpret_cast<PBYTE>(text.data()),
                                       static_cast<DWORD>(text.size() + 1), 0),
            "can't log in to the token");
}

std::vector<Bytes> KspProvider::chain(const TokenKey& key)
{
    // Key storage knows the key's own certificate alone; both interfaces call a key by the same name.
    auto chain = chainFromCsp(key.name);
    return chain.empty() ? chainFromSystem(*key.certificate) : chain;
}

Bytes KspProvider::sign(const TokenKey& key, const KnownDigest& hash, ByteView data)
{
    const auto kind = publicKeyKind(*key.certificate);
    if (!kind) throw Failure("key " + key.name + " is of a kind that this tool does not know; choose another with --key");
    const NCRYPT_KEY_HANDLE handle = handleOf(key.name);
    Bytes digest = digestOf(hash, data);
    BCRYPT_PKCS1_PADDING_INFO padding{hash.systemName};
    // An elliptic key answers a size query with the size of a coordinate, and its signature has two.
    Bytes signature(kind->elliptic ? 2 * kind->coordinateSize : number(handle, L"Length") / 8);
    auto size = static_cast<DWORD>(signature.size());
    require(table_.SignHash(provider_, handle, kind->elliptic ? nullptr : &padding, digest.data(),
                            static_cast<DWORD>(digest.size()), signature.data(), size, &size,
                            kind->elliptic ? 0 : NCRYPT_PAD_PKCS1_FLAG),
            "can't sign");
    signature.resize(std::min<std::size_t>(size, signature.size()));
    return signature;
}

Bytes KspProvider::unwrap(const TokenKey& key, ByteView wrapped, bool oaep)
{
    BCRYPT_OAEP_PADDING_INFO padding{BCRYPT_SHA1_ALGORITHM, nullptr, 0};
    Bytes input = toBytes(wrapped);
    Bytes plain(wrapped.size());
    auto size = static_cast<DWORD>(plain.size());
    require(table_.Decrypt(provider_, handleOf(key.name), input.data(), static_cast<DWORD>(input.size()),
                           oaep ? &padding : nullptr, plain.data(), size, &size,
                           oaep ? NCRYPT_PAD_OAEP_FLAG : NCRYPT_PAD_PKCS1_FLAG),
            "can't decrypt");
    plain.resize(std::min<std::size_t>(size, plain.size()));
    return plain;
}

NCRYPT_KEY_HANDLE KspProvider::handleOf(const std::string& name)
{
    const auto known = handles_.find(name);
    if (known != handles_.end()) return known->second;
    NCRYPT_KEY_HANDLE handle = 0;
    require(table_.OpenKey(provider_, &handle, toWide(name).c_str(), 0, 0), "can't open key " + name);
    return handles_.emplace(name, handle).first->second;
}

Bytes KspProvider::property(NCRYPT_KEY_HANDLE key, const wchar_t* name)
{
    DWORD size = 0;
    if (table_.GetKeyProperty(provider_, key, name, nullptr, 0, &size, 0)) return {};
    Bytes value(size);
    if (table_.GetKeyProperty(provider_, key, name, value.data(), size, &size, 0)) return {};
    value.resize(std::min<std::size_t>(size, value.size()));
    return value;
}

DWORD KspProvider::number(NCRYPT_KEY_HANDLE key, const wchar_t* name)
{
    DWORD value = 0;
    const Bytes bytes = property(key, name);
    if (bytes.size() == sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::string KspProvider::algorithmOf(NCRYPT_KEY_HANDLE key)
{
    const Bytes name = property(key, L"Algorithm Group");
    const bool rsa = std::ranges::equal(name, ByteView(reinterpret_cast<const unsigned char*>(L"RSA"), sizeof L"RSA"));
    return rsa ? "RSA" : "P-" + std::to_string(number(key, L"Length"));
}

} // namespace

std::unique_ptr<TokenProvider> openKeyStorage()
{
    return std::make_unique<KspProvider>();
}

} // namespace quelta::tools
