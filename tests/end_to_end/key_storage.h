// The module's key storage table as CNG would use it. What an application would take for granted throws when it fails.
#pragma once

#include "base/bytes.h"
#include "base/key_storage_table.h"
#include "base/windows_objects.h"

#include <string>
#include <vector>

namespace quelta::test {

class KeyStorage;

// Released together with its owner's provider still open.
class StoredKey {
public:
    StoredKey(const KeyStorage& storage, NCRYPT_KEY_HANDLE handle);
    StoredKey(const StoredKey&) = delete;
    StoredKey& operator=(const StoredKey&) = delete;
    ~StoredKey();

    NCRYPT_KEY_HANDLE get() const { return handle_; }

    Bytes property(const wchar_t* name) const;
    std::wstring text(const wchar_t* name) const;
    DWORD number(const wchar_t* name) const;
    void set(const wchar_t* name, ByteView value) const;
    void set(const wchar_t* name, const std::wstring& text) const;

    // The room is the caller's: an EC key's signature is larger than what a size query answers.
    Bytes sign(ByteView hash, std::size_t room) const;
    SECURITY_STATUS trySign(DWORD flags = 0) const;
    SECURITY_STATUS verify(ByteView hash, ByteView signature) const;
    Bytes encrypt(ByteView plain, DWORD padding) const;
    Bytes decrypt(ByteView cipher, DWORD padding) const;
    Bytes exported(const wchar_t* blobType) const;

private:
    // What a slot puts into a buffer of this size.
    template <class Slot, class... Arguments>
    Bytes output(const char* what, DWORD size, Slot slot, DWORD flags, Arguments... arguments) const;

    const KeyStorageFunctionTable& table_;
    NCRYPT_PROV_HANDLE provider_;
    NCRYPT_KEY_HANDLE handle_;
};

class KeyStorage {
public:
    KeyStorage();
    ~KeyStorage();
    KeyStorage(const KeyStorage&) = delete;
    KeyStorage& operator=(const KeyStorage&) = delete;

    const KeyStorageFunctionTable& table() const { return *table_; }
    NCRYPT_PROV_HANDLE provider() const { return provider_; }

    // Gives the token's PIN by property, so that no dialog asks for it.
    void usePin() const;
    StoredKey open(const std::wstring& name) const;
    // By the label that it has among the tests' keys.
    StoredKey openLabelled(const std::string& label) const;
    StoredKey create(const wchar_t* algorithm) const;
    StoredKey import(const wchar_t* blobType, ByteView blob, const StoredKey* unwrapping = nullptr) const;
    SECURITY_STATUS tryImport(const wchar_t* blobType, ByteView blob) const;
    std::vector<std::wstring> names() const;

private:
    Library module_;
    KeyStorageFunctionTable* table_ = nullptr;
    NCRYPT_PROV_HANDLE provider_ = 0;
};

} // namespace quelta::test
