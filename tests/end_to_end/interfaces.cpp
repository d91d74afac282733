#include "end_to_end/interfaces.h"

#include "base/provider_name.h"
#include "support/child_process.h"
#include "support/test_bytes.h"

#include <cstdlib>
#include <stdexcept>

namespace quelta::test {

namespace {

std::string builtModule()
{
    return (ownExecutable().parent_path() / "QueltaCSP.dll").string();
}

} // namespace

void registerBuiltModule()
{
    const auto set = [](const char* name, DWORD type, const void* data, std::size_t size) {
        if (RegSetKeyValueA(HKEY_LOCAL_MACHINE, providerRegistryKey().c_str(), name, type, data, static_cast<DWORD>(size)))
            throw std::runtime_error("The provider can't be registered");
    };
    const DWORD numbers[] = {PROV_RSA_FULL, 0};
    set("Image Path", REG_SZ, builtModule().c_str(), builtModule().size() + 1);
    set("Type", REG_DWORD, &numbers[0], sizeof(DWORD));
    set("Signature", REG_BINARY, &numbers[1], sizeof(DWORD));
}

CryptoApi::CryptoApi(const std::string& label)
{
    CryptAcquireContextA(context_.out(), label.empty() ? nullptr : keyName(label).c_str(), providerName, PROV_RSA_FULL, 0);
}

CryptHash CryptoApi::hash(ALG_ID algorithm, ByteView data) const
{
    CryptHash hash = made<CryptHash>(CryptCreateHash, get(), algorithm, 0, 0);
    if (!hash || !CryptHashData(hash.get(), data.data(), sizeOf(data), 0)) return {};
    return hash;
}

Bytes CryptoApi::sign(ALG_ID algorithm, ByteView data) const
{
    const CryptHash made = hash(algorithm, data);
    if (!made) return {};
    return filled([&](BYTE* into, DWORD* size) { return CryptSignHashA(made.get(), AT_SIGNATURE, nullptr, 0, into, size); });
}

DWORD CryptoApi::verify(ALG_ID algorithm, ByteView data, ByteView signature, const CryptKey& key) const
{
    const CryptHash made = hash(algorithm, data);
    return made && CryptVerifySignatureA(made.get(), signature.data(), sizeOf(signature), key.get(), nullptr, 0) ? 0
                                                                                                                 : GetLastError();
}

Bytes CryptoApi::encrypt(const CryptKey& key, ByteView plain, DWORD flags)
{
    return filled([&](BYTE* into, DWORD* size) {
        std::ranges::copy(plain, into);
        const DWORD room = std::exchange(*size, sizeOf(plain));
        return CryptEncrypt(key.get(), 0, TRUE, flags, into, size, room);
    });
}

Bytes CryptoApi::decrypt(const CryptKey& key, ByteView cipher, DWORD flags)
{
    return filled([&](BYTE* into, DWORD* size) {
        std::ranges::copy(cipher, into);
        *size = sizeOf(cipher);
        return CryptDecrypt(key.get(), 0, TRUE, flags, into, size);
    });
}

StoredKey::StoredKey(const KeyStorage& storage, NCRYPT_KEY_HANDLE handle, SECURITY_STATUS status)
    : table_(storage.table()), provider_(storage.provider()), handle_(handle), status_(status)
{}

KeyStorage::KeyStorage() : module_(LoadLibraryA(builtModule().c_str()))
{
    void* const entry = reinterpret_cast<void*>(GetProcAddress(module_.get(), "GetKeyStorageInterface"));
    if (!entry) throw std::runtime_error("QueltaCSP.dll can't be loaded: " + std::to_string(GetLastError()));
    reinterpret_cast<GetKeyStorageInterfaceFunction>(entry)(wideProviderName, &table_, 0);
    status_ = table_->OpenProvider(&provider_, wideProviderName, 0);
}

void KeyStorage::usePin() const
{
    const Bytes pin = bytesOfText(tokenPin);
    table_->SetProviderProperty(provider_, L"SmartCardPin", dataOf(pin), sizeOf(pin), 0);
}

StoredKey KeyStorage::import(const wchar_t* blobType, ByteView blob, NCRYPT_KEY_HANDLE unwrapping) const
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status =
        table_->ImportKey(provider_, unwrapping, blobType, nullptr, &key, dataOf(blob), sizeOf(blob), 0);
    return {*this, key, status};
}

// FreeBuffer releases a block, and not what the block points to. The names and the list in the state come from the C runtime.
// They are released here, so that holdings() finds no leak.
std::vector<std::wstring> KeyStorage::names() const
{
    std::vector<std::wstring> found;
    NCryptKeyName* name = nullptr;
    PVOID state = nullptr;
    for (; !table_->EnumKeys(provider_, nullptr, &name, &state, 0); table_->FreeBuffer(name)) {
        found.emplace_back(name->pszName);
        std::free(name->pszName);
        std::free(name->pszAlgid);
    }
    if (state) std::free(static_cast<void**>(state)[1]);
    table_->FreeBuffer(state);
    return found;
}

} // namespace quelta::test
