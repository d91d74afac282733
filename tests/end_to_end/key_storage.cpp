#include "end_to_end/key_storage.h"

#include "base/provider_name.h"
#include "end_to_end/token_test.h"

#include <cstring>
#include <stdexcept>

namespace quelta::test {

namespace {

// The largest signature or cipher text, and more than an exported key.
constexpr DWORD room = 1024;

void require(SECURITY_STATUS status, const char* what)
{
    if (status) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(status));
}

// The slots take bytes that they only read as if they wrote them.
PBYTE dataOf(ByteView bytes)
{
    return const_cast<PBYTE>(bytes.data());
}

DWORD lengthOf(ByteView bytes)
{
    return static_cast<DWORD>(bytes.size());
}

} // namespace

StoredKey::StoredKey(const KeyStorage& storage, NCRYPT_KEY_HANDLE handle)
    : table_(storage.table()), provider_(storage.provider()), handle_(handle)
{}

StoredKey::~StoredKey()
{
    table_.FreeKey(provider_, handle_);
}

template <class Slot, class... Arguments>
Bytes StoredKey::output(const char* what, DWORD size, Slot slot, DWORD flags, Arguments... arguments) const
{
    Bytes bytes(size);
    DWORD written = 0;
    require(slot(provider_, handle_, arguments..., bytes.data(), size, &written, flags), what);
    bytes.resize(written);
    return bytes;
}

Bytes StoredKey::property(const wchar_t* name) const
{
    DWORD size = 0;
    require(table_.GetKeyProperty(provider_, handle_, name, nullptr, 0, &size, 0), "A property's size");
    return output("GetKeyProperty", size, table_.GetKeyProperty, 0, name);
}

std::wstring StoredKey::text(const wchar_t* name) const
{
    const Bytes value = property(name);
    std::wstring text(value.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), value.data(), text.size() * sizeof(wchar_t));
    if (!text.ends_with(L'\0')) throw std::runtime_error("A property's text has no end");
    text.pop_back();
    return text;
}

DWORD StoredKey::number(const wchar_t* name) const
{
    DWORD value = 0;
    const Bytes bytes = property(name);
    if (bytes.size() != sizeof value) throw std::runtime_error("A property is no number");
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

void StoredKey::set(const wchar_t* name, ByteView value) const
{
    require(table_.SetKeyProperty(provider_, handle_, name, dataOf(value), lengthOf(value), 0), "SetKeyProperty");
}

void StoredKey::set(const wchar_t* name, const std::wstring& text) const
{
    set(name, ByteView(reinterpret_cast<const unsigned char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)));
}

Bytes StoredKey::sign(ByteView hash, std::size_t signatureRoom) const
{
    return output("SignHash", static_cast<DWORD>(signatureRoom), table_.SignHash, NCRYPT_PAD_PKCS1_FLAG, nullptr, dataOf(hash),
                  lengthOf(hash));
}

SECURITY_STATUS StoredKey::trySign(DWORD flags) const
{
    Bytes hash(32, 7), signature(room);
    DWORD written = 0;
    return table_.SignHash(provider_, handle_, nullptr, hash.data(), lengthOf(hash), signature.data(), room, &written,
                           flags | NCRYPT_PAD_PKCS1_FLAG);
}

SECURITY_STATUS StoredKey::verify(ByteView hash, ByteView signature) const
{
    return table_.VerifySignature(provider_, handle_, nullptr, dataOf(hash), lengthOf(hash), dataOf(signature),
                                  lengthOf(signature), NCRYPT_PAD_PKCS1_FLAG);
}

Bytes StoredKey::encrypt(ByteView plain, DWORD padding) const
{
    return output("Encrypt", room, table_.Encrypt, padding, dataOf(plain), lengthOf(plain), nullptr);
}

Bytes StoredKey::decrypt(ByteView cipher, DWORD padding) const
{
    return output("Decrypt", room, table_.Decrypt, padding, dataOf(cipher), lengthOf(cipher), nullptr);
}

Bytes StoredKey::exported(const wchar_t* blobType) const
{
    return output("ExportKey", room, table_.ExportKey, 0, NCRYPT_KEY_HANDLE{}, blobType, nullptr);
}

KeyStorage::KeyStorage() : module_(LoadLibraryA(builtModule().c_str()))
{
    if (!module_) throw std::runtime_error("QueltaCSP.dll can't be loaded: " + std::to_string(GetLastError()));
    void* const entry = reinterpret_cast<void*>(GetProcAddress(module_.get(), "GetKeyStorageInterface"));
    require(reinterpret_cast<GetKeyStorageInterfaceFunction>(entry)(wideProviderName, &table_, 0), "GetKeyStorageInterface");
    require(table_->OpenProvider(&provider_, wideProviderName, 0), "OpenProvider");
}

KeyStorage::~KeyStorage()
{
    table_->FreeProvider(provider_);
}

void KeyStorage::usePin() const
{
    std::string pin = tokenPin;
    require(table_->SetProviderProperty(provider_, L"SmartCardPin", reinterpret_cast<PBYTE>(pin.data()),
                                        static_cast<DWORD>(pin.size() + 1), 0),
            "Setting the PIN");
}

StoredKey KeyStorage::open(const std::wstring& name) const
{
    NCRYPT_KEY_HANDLE key = 0;
    require(table_->OpenKey(provider_, &key, name.c_str(), 0, 0), "OpenKey");
    return {*this, key};
}

StoredKey KeyStorage::openLabelled(const std::string& label) const
{
    const std::string name = keyName(label);
    return open(std::wstring(name.begin(), name.end()));
}

StoredKey KeyStorage::create(const wchar_t* algorithm) const
{
    NCRYPT_KEY_HANDLE key = 0;
    require(table_->CreatePersistedKey(provider_, &key, algorithm, L"made by a test", AT_SIGNATURE, 0), "CreatePersistedKey");
    return {*this, key};
}

StoredKey KeyStorage::import(const wchar_t* blobType, ByteView blob, const StoredKey* unwrapping) const
{
    NCRYPT_KEY_HANDLE key = 0;
    require(table_->ImportKey(provider_, unwrapping ? unwrapping->get() : 0, blobType, nullptr, &key, dataOf(blob),
                              lengthOf(blob), 0),
            "ImportKey");
    return {*this, key};
}

SECURITY_STATUS KeyStorage::tryImport(const wchar_t* blobType, ByteView blob) const
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status = table_->ImportKey(provider_, 0, blobType, nullptr, &key, dataOf(blob), lengthOf(blob), 0);
    if (key) table_->FreeKey(provider_, key);
    return status;
}

std::vector<std::wstring> KeyStorage::names() const
{
    std::vector<std::wstring> found;
    NCryptKeyName* name = nullptr;
    PVOID state = nullptr;
    SECURITY_STATUS status = 0;
    while (!(status = table_->EnumKeys(provider_, nullptr, &name, &state, 0))) {
        found.emplace_back(name->pszName);
        table_->FreeBuffer(name);
    }
    table_->FreeBuffer(state);
    if (status != NTE_NO_MORE_ITEMS) require(status, "EnumKeys");
    return found;
}

} // namespace quelta::test
