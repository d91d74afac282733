#include "tools/token/key_storage.h"

#include "base/key_storage_table.h"
#include "base/provider_name.h"
#include "common/text.h"
#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/token/csp_provider.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <string_view>

namespace quelta::tools {

namespace {

using Provider = NCRYPT_PROV_HANDLE;
using Key = NCRYPT_KEY_HANDLE;

// Slots that the tool does not use stay null.
KeyStorageFunctionTable systemTable()
{
    KeyStorageFunctionTable table{};
    table.OpenProvider = NCryptOpenStorageProvider;
    table.OpenKey = NCryptOpenKey;
    table.GetKeyProperty = [](Provider, Key key, LPCWSTR property, PBYTE output, DWORD size, DWORD* result, DWORD flags) {
        return NCryptGetProperty(key, property, output, size, result, flags);
    };
    table.SetProviderProperty = NCryptSetProperty;
    table.FreeProvider = NCryptFreeObject;
    table.FreeKey = [](Provider, Key key) { return NCryptFreeObject(key); };
    table.FreeBuffer = NCryptFreeBuffer;
    table.EnumKeys = NCryptEnumKeys;
    table.SignHash = [](Provider, Key key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature, DWORD size, DWORD* result,
                        DWORD flags) { return NCryptSignHash(key, padding, hash, hashSize, signature, size, result, flags); };
    table.Decrypt = [](Provider, Key key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output, DWORD size, DWORD* result,
                       DWORD flags) { return NCryptDecrypt(key, input, inputSize, padding, output, size, result, flags); };
    return table;
}

// Loads the module: the registered file first, since a second copy in this process would ask for the PIN again; then the one
// beside this program, then the one in the system's folder. Null if none can be loaded.
Library loadModule()
{
    const auto path = registeredModule();
    Library module(path.is_absolute() ? LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH) : nullptr);
    if (!module) module.reset(LoadLibraryExW(moduleName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
    return module;
}

// Returns the system's functions, else those of the module, which `module` keeps loaded. Throws a Failure if neither can be had.
const KeyStorageFunctionTable& functionTable(Library& module)
{
    static const KeyStorageFunctionTable ofSystem = systemTable();
    if (isKeyStorageRegistered()) return ofSystem;
    module = loadModule();
    if (!module) throw Failure("can't load QueltaCSP.dll with its QueltaDSCLibrary.dll; quelta check tells what is missing");
    // The cast goes through void*, since compilers warn of a cast between different function types.
    void* const address = reinterpret_cast<void*>(GetProcAddress(module.get(), "GetKeyStorageInterface"));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFunction>(address);
    KeyStorageFunctionTable* table = nullptr;
    if (!getInterface || getInterface(wideProviderName, &table, 0) || !table)
        throw Failure("QueltaCSP.dll offers no key storage; install a complete one, or use --provider csp");
    return *table;
}

void require(SECURITY_STATUS status, std::string_view what)
{
    if (status) fail(what, static_cast<unsigned long>(status));
}

class KeyStorageToken : public TokenProvider {
public:
    KeyStorageToken()
    {
        if (const auto status = table_.OpenProvider(&provider_, wideProviderName, 0))
            failOpening("can't open the token", static_cast<unsigned long>(status));
    }

    ~KeyStorageToken() override
    {
        for (const auto& [name, key] : handles_) table_.FreeKey(provider_, key);
        table_.FreeProvider(provider_);
    }
    KeyStorageToken(const KeyStorageToken&) = delete;
    KeyStorageToken& operator=(const KeyStorageToken&) = delete;

    std::vector<KeyEntry> keys() override
    {
        std::vector<KeyEntry> found;
        for (const std::wstring& name : names()) {
            KeyEntry key;
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

    void usePin(const std::string& pin) override
    {
        // The interface lacks const. It does not write through this pointer.
        auto* const text = reinterpret_cast<PBYTE>(const_cast<char*>(pin.c_str()));
        require(table_.SetProviderProperty(provider_, L"SmartCardPin", text, static_cast<DWORD>(pin.size() + 1), 0),
                "can't log in to the token");
    }

    std::vector<Bytes> chain(const KeyEntry& key) override
    {
        // Key storage has only the key's own certificate. CryptoAPI has the chain, under the same key name.
        auto chain = chainFromCsp(key.name);
        return chain.empty() ? chainFromSystem(*key.certificate) : chain;
    }

    Bytes sign(const KeyEntry& key, const KnownDigest& hash, ByteView data) override
    {
        const auto kind = publicKeyKind(*key.certificate);
        if (!kind) throw Failure("key " + key.name + " is of a kind that this tool does not know; choose another with --key");
        const NCRYPT_KEY_HANDLE handle = handleOf(key.name);
        Bytes digest = digestOf(hash, data);
        BCRYPT_PKCS1_PADDING_INFO padding{hash.systemName};
        // The size query of an EC key tells one coordinate. The signature has two.
        Bytes signature(kind->elliptic ? 2 * kind->coordinateSize : number(handle, L"Length") / 8);
        auto size = static_cast<DWORD>(signature.size());
        require(table_.SignHash(provider_, handle, kind->elliptic ? nullptr : &padding, digest.data(),
                                static_cast<DWORD>(digest.size()), signature.data(), size, &size,
                                kind->elliptic ? 0 : NCRYPT_PAD_PKCS1_FLAG),
                "can't sign");
        signature.resize(std::min<std::size_t>(size, signature.size()));
        return signature;
    }

    Wiped<Bytes> unwrap(const KeyEntry& key, ByteView wrapped, bool oaep) override
    {
        BCRYPT_OAEP_PADDING_INFO padding{BCRYPT_SHA1_ALGORITHM, nullptr, 0};
        Bytes input = toBytes(wrapped);
        Wiped<Bytes> plain(wrapped.size());
        auto size = static_cast<DWORD>(plain->size());
        require(table_.Decrypt(provider_, handleOf(key.name), input.data(), static_cast<DWORD>(input.size()),
                               oaep ? &padding : nullptr, plain->data(), size, &size,
                               oaep ? NCRYPT_PAD_OAEP_FLAG : NCRYPT_PAD_PKCS1_FLAG),
                "can't decrypt");
        plain->resize(std::min<std::size_t>(size, plain->size()));
        return plain;
    }

private:
    std::vector<std::wstring> names()
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

    NCRYPT_KEY_HANDLE handleOf(const std::string& name)
    {
        const auto known = handles_.find(name);
        if (known != handles_.end()) return known->second;
        NCRYPT_KEY_HANDLE handle = 0;
        require(table_.OpenKey(provider_, &handle, toWide(name).c_str(), 0, 0), "can't open key " + name);
        return handles_.emplace(name, handle).first->second;
    }

    // Empty if the key has no such property.
    Bytes property(NCRYPT_KEY_HANDLE key, const wchar_t* name)
    {
        return fetched([&](BYTE* value, DWORD* size) {
            return table_.GetKeyProperty(provider_, key, name, value, *size, size, 0) == ERROR_SUCCESS;
        });
    }

    DWORD number(NCRYPT_KEY_HANDLE key, const wchar_t* name)
    {
        DWORD value = 0;
        const Bytes bytes = property(key, name);
        if (bytes.size() == sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    std::string algorithmOf(NCRYPT_KEY_HANDLE key)
    {
        const Bytes name = property(key, L"Algorithm Group");
        const bool rsa = std::ranges::equal(name, ByteView(reinterpret_cast<const unsigned char*>(L"RSA"), sizeof L"RSA"));
        return rsa ? "RSA" : "P-" + std::to_string(number(key, L"Length"));
    }

    Library module_;
    const KeyStorageFunctionTable& table_ = functionTable(module_);
    NCRYPT_PROV_HANDLE provider_ = 0;
    std::map<std::string, NCRYPT_KEY_HANDLE> handles_;
};

} // namespace

std::unique_ptr<TokenProvider> openKeyStorage()
{
    return std::make_unique<KeyStorageToken>();
}

bool isKeyStorageRegistered()
{
    DWORD count = 0;
    NCryptProviderName* names = nullptr;
    if (isWine() || NCryptEnumStorageProviders(&count, &names, 0)) return false;
    const bool found = std::ranges::any_of(std::span(names, count), [](const NCryptProviderName& provider) {
        return std::wstring_view(provider.pszName) == wideProviderName;
    });
    NCryptFreeBuffer(names);
    return found;
}

std::filesystem::path registeredModule()
{
    std::array<wchar_t, 1024> path{};
    auto size = static_cast<DWORD>(sizeof path);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, toWide(providerRegistryKey()).c_str(), L"Image Path", RRF_RT_REG_SZ, nullptr,
                     path.data(), &size))
        return {};
    // CryptoAPI expands variables whatever the value's type.
    std::array<wchar_t, 1024> expanded{};
    ExpandEnvironmentStringsW(path.data(), expanded.data(), static_cast<DWORD>(expanded.size()));
    return expanded.data();
}

} // namespace quelta::tools
