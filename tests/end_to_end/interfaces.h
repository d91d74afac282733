// Calls both interfaces as an application does: CryptoAPI through advapi32, key storage through the module's table. A refused
// call returns an empty value, and the last error tells why. For an output of key storage the last error is the status.
#pragma once

#include "base/bytes.h"
#include "base/key_storage_table.h"
#include "base/text.h"
#include "common/crypto_objects.h"

#include <string>
#include <vector>

namespace quelta::test {

// The sizes of the token's RSA keys in bits. The keys are called "rsa1024" and so on, those on curves "p256", "p384", "p521".
constexpr unsigned rsaSizes[] = {1024, 2048, 3072, 4096};

// Returns the bytes that a call writes into a buffer; empty if the call fails.
template <class Call>
Bytes filled(Call call, DWORD room = 16384)
{
    Bytes bytes(room);
    const bool done = call(bytes.data(), &room);
    bytes.resize(done ? room : 0);
    return bytes;
}

// Registers the module for CryptoAPI, in this process's registry.
void registerBuiltModule();
// The PIN of every token here.
constexpr const char tokenPin[] = "135790";
// Returns the identifier of the key with this label.
std::string keyName(const std::string& label);

template <class Object, class Function, class... Arguments>
Object made(Function function, Arguments... arguments)
{
    Object object;
    function(arguments..., object.out());
    return object;
}

// Both interfaces take a pointer to non-constant bytes, although they only read them.
inline PBYTE dataOf(ByteView bytes)
{
    return const_cast<PBYTE>(bytes.data());
}
inline DWORD sizeOf(ByteView bytes)
{
    return static_cast<DWORD>(bytes.size());
}

// A context on the container of the key with this label, or without a container. Signatures and cipher texts of RSA have the
// least significant byte first.
class CryptoApi {
public:
    explicit CryptoApi(const std::string& label = "");

    HCRYPTPROV get() const { return context_.get(); }
    CryptKey userKey(DWORD spec = AT_SIGNATURE) const { return made<CryptKey>(CryptGetUserKey, get(), spec); }
    CryptKey import(ByteView blob, HCRYPTKEY unwrapping = 0) const
    {
        return made<CryptKey>(CryptImportKey, get(), blob.data(), sizeOf(blob), unwrapping, 0);
    }
    Bytes sign(ALG_ID algorithm, ByteView data) const;
    // Returns the last error, or 0 for success.
    DWORD verify(ALG_ID algorithm, ByteView data, ByteView signature, const CryptKey& key) const;
    static Bytes encrypt(const CryptKey& key, ByteView plain, DWORD flags = 0);
    static Bytes decrypt(const CryptKey& key, ByteView cipher, DWORD flags = 0);

private:
    CryptHash hash(ALG_ID algorithm, ByteView data) const;

    CryptContext context_;
};

using Table = KeyStorageFunctionTable;
class KeyStorage;

class StoredKey {
public:
    StoredKey(const KeyStorage& storage, NCRYPT_KEY_HANDLE handle, SECURITY_STATUS status);
    StoredKey(StoredKey&& other) noexcept
        : table_(other.table_), provider_(other.provider_), handle_(std::exchange(other.handle_, 0)), status_(other.status_)
    {}
    StoredKey(const StoredKey&) = delete;
    StoredKey& operator=(const StoredKey&) = delete;
    ~StoredKey() { call(&Table::FreeKey); }

    NCRYPT_KEY_HANDLE get() const { return handle_; }
    // Returns the status of the call that opened, made or imported the key.
    SECURITY_STATUS status() const { return status_; }

    template <class Slot, class... Arguments>
    SECURITY_STATUS call(Slot Table::*slot, Arguments... arguments) const
    {
        return (table_.*slot)(provider_, handle_, arguments...);
    }
    Bytes property(const wchar_t* name) const { return output(&Table::GetKeyProperty, 0, name); }
    SECURITY_STATUS set(const wchar_t* name, ByteView value) const
    {
        return call(&Table::SetKeyProperty, name, dataOf(value), sizeOf(value), 0);
    }
    Bytes exported(const wchar_t* type) const { return output(&Table::ExportKey, 0, 0, type, nullptr); }
    Bytes sign(ByteView hash, DWORD flags = 0) const
    {
        return output(&Table::SignHash, flags | NCRYPT_PAD_PKCS1_FLAG, nullptr, dataOf(hash), sizeOf(hash));
    }
    SECURITY_STATUS verify(ByteView hash, ByteView signature) const
    {
        return call(&Table::VerifySignature, nullptr, dataOf(hash), sizeOf(hash), dataOf(signature), sizeOf(signature),
                    NCRYPT_PAD_PKCS1_FLAG);
    }
    Bytes encrypt(ByteView plain, DWORD padding) const
    {
        return output(&Table::Encrypt, padding, dataOf(plain), sizeOf(plain), nullptr);
    }
    Bytes decrypt(ByteView cipher, DWORD padding) const
    {
        return output(&Table::Decrypt, padding, dataOf(cipher), sizeOf(cipher), nullptr);
    }

private:
    template <class Slot, class... Arguments>
    Bytes output(Slot slot, DWORD flags, Arguments... arguments) const
    {
        return filled([&](BYTE* into, DWORD* size) {
            const SECURITY_STATUS status = call(slot, arguments..., into, *size, size, flags);
            if (status) SetLastError(static_cast<DWORD>(status));
            return !status;
        });
    }

    const Table& table_;
    NCRYPT_PROV_HANDLE provider_;
    NCRYPT_KEY_HANDLE handle_;
    SECURITY_STATUS status_;
};

class KeyStorage {
public:
    KeyStorage();
    ~KeyStorage() { table_->FreeProvider(provider_); }
    KeyStorage(const KeyStorage&) = delete;
    KeyStorage& operator=(const KeyStorage&) = delete;

    const Table& table() const { return *table_; }
    NCRYPT_PROV_HANDLE provider() const { return provider_; }
    // Returns the status of the opening.
    SECURITY_STATUS status() const { return status_; }

    // Gives the token's PIN for both interfaces. Then no dialog asks for it.
    void usePin() const;
    // Opens a key by its label among the tests' keys.
    StoredKey openLabelled(const std::string& label) const { return key(&Table::OpenKey, toWide(keyName(label)).c_str(), 0, 0); }
    StoredKey create(const wchar_t* algorithm) const
    {
        return key(&Table::CreatePersistedKey, algorithm, L"a name", AT_SIGNATURE, 0);
    }
    StoredKey import(const wchar_t* blobType, ByteView blob, NCRYPT_KEY_HANDLE unwrapping = 0) const;
    std::vector<std::wstring> names() const;

private:
    template <class Slot, class... Arguments>
    StoredKey key(Slot Table::*slot, Arguments... arguments) const
    {
        NCRYPT_KEY_HANDLE handle = 0;
        const SECURITY_STATUS status = (table_->*slot)(provider_, &handle, arguments...);
        return {*this, handle, status};
    }

    Library module_;
    Table* table_ = nullptr;
    NCRYPT_PROV_HANDLE provider_ = 0;
    SECURITY_STATUS status_ = 0;
};

} // namespace quelta::test
