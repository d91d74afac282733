#include "base/key_storage_table.h"
#include "base/provider_name.h"
#include "base/text.h"
#include "crypto/primitives.h"
#include "soak/jobs.h"
#include "soak/weather.h"

#include <cstdlib>

namespace quelta::soak {

namespace {

using Table = KeyStorageFunctionTable;

constexpr const wchar_t* certificateProperty = L"SmartCardKeyCertificate";

class Provider {
public:
    explicit Provider(Thread& asking) : thread(asking)
    {
        if (!thread.ask("LoadLibrary", [&] { return (module_ = LoadLibraryA(moduleName)) != nullptr; })) return;
        const auto entry = reinterpret_cast<GetKeyStorageInterfaceFunction>(
            reinterpret_cast<void*>(GetProcAddress(module_, "GetKeyStorageInterface")));
        if (thread.ask("GetKeyStorageInterface", [&] { return entry && entry(wideProviderName, &table, 0) == 0 && table; }))
            thread.ask("OpenProvider", [&] { return table->OpenProvider(&handle, wideProviderName, 0); });
    }
    ~Provider()
    {
        if (handle) thread.ask("FreeProvider", [&] { return table->FreeProvider(handle); });
        if (module_) thread.ask("FreeLibrary", [&] { return FreeLibrary(module_); });
    }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    Thread& thread;
    Table* table = nullptr;
    NCRYPT_PROV_HANDLE handle = 0;

private:
    HMODULE module_ = nullptr;
};

class Key {
public:
    explicit Key(const Provider& itsProvider) : provider(itsProvider) {}
    ~Key()
    {
        if (handle) provider.thread.ask("FreeKey", [&] { return call(&Table::FreeKey); });
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    bool open(const KnownKey& known)
    {
        return provider.thread.ask(
            "OpenKey", [&] { return provider.table->OpenKey(provider.handle, &handle, toWide(known.name).c_str(), 0, 0); });
    }
    auto importing(const wchar_t* type, const Bytes& blob, NCRYPT_KEY_HANDLE unwrapping = 0)
    {
        return [=, this, &blob] {
            return provider.table->ImportKey(provider.handle, unwrapping, type, nullptr, &handle, dataOf(blob), sizeOf(blob), 0);
        };
    }
    template <class Slot, class... Arguments>
    SECURITY_STATUS call(Slot Table::*slot, Arguments... arguments) const
    {
        return (provider.table->*slot)(provider.handle, handle, arguments...);
    }
    template <class Slot, class... Arguments>
    std::optional<Bytes> fetch(CallName name, DWORD flags, DWORD room, Slot Table::*slot, Arguments... arguments) const
    {
        return provider.thread.fetch(
            name, [&](BYTE* output, DWORD* size) { return call(slot, arguments..., output, *size, size, flags); }, room);
    }
    template <class... Arguments>
    std::optional<Bytes> fetchSilentlyAtTimes(CallName loud, CallName silent, DWORD flags, Arguments... arguments) const
    {
        return provider.thread.oneIn(4) ? fetch(silent, flags | NCRYPT_SILENT_FLAG, arguments...)
                                        : fetch(loud, flags, arguments...);
    }
    SECURITY_STATUS set(const wchar_t* property, ByteView value) const
    {
        return call(&Table::SetKeyProperty, property, dataOf(value), sizeOf(value), DWORD{0});
    }

    const Provider& provider;
    NCRYPT_KEY_HANDLE handle = 0;
};

struct Session {
    Thread& thread;
    const Known& known;
    const Provider& provider;
    const Key& rsa;
    const Key& curve;
};

// The size that is told for a key on a curve is not that of its signatures.
std::optional<Bytes> signature(const Key& key, const Bytes& digest)
{
    return key.fetchSilentlyAtTimes("SignHash", "SignHash, silent", NCRYPT_PAD_PKCS1_FLAG, rsaSize, &Table::SignHash, nullptr,
                                    dataOf(digest), sizeOf(digest));
}

void verify(Thread& thread, const Key& key, const Bytes& digest, Bytes signature)
{
    const auto verifying = [&] {
        return key.call(&Table::VerifySignature, nullptr, dataOf(digest), sizeOf(digest), signature.data(), sizeOf(signature),
                        DWORD{NCRYPT_PAD_PKCS1_FLAG});
    };
    thread.ask("VerifySignature", verifying);
    signature.at(thread.below(signature.size())) ^= 1;
    thread.askInVain("VerifySignature, damaged", NTE_BAD_SIGNATURE, verifying);
}

void sign(const Session& session)
{
    Thread& thread = session.thread;
    const bool rsa = thread.oneIn(2);
    const Key& key = rsa ? session.rsa : session.curve;
    const Bytes digest = thread.bytes(knownDigests[rsa ? thread.below(4) : 0].size);
    const auto made = signature(key, digest);
    if (made && judgeSignature(thread, "SignHash", (rsa ? session.known.rsa : session.known.curve).publicKey, digest, *made))
        verify(thread, key, digest, *made);
}

void encryptAndDecrypt(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    const Secret secret = drawnSecret(thread, known);
    const DWORD flags = secret.padding == softtoken::RsaPadding::pkcs1 ? NCRYPT_PAD_PKCS1_FLAG : NCRYPT_PAD_OAEP_FLAG;
    const auto made = rsa.fetchSilentlyAtTimes("Encrypt", "Encrypt, silent", flags, 0, &Table::Encrypt, dataOf(secret.text),
                                               sizeOf(secret.text), nullptr);
    if (made) judgeCipher(thread, "Encrypt", known, *made, secret);
    const auto plain = rsa.fetchSilentlyAtTimes("Decrypt", "Decrypt, silent", flags, 0, &Table::Decrypt, dataOf(secret.cipher),
                                                sizeOf(secret.cipher), nullptr);
    if (plain) judgePlainText(thread, "Decrypt", *plain, secret.text);
}

void importSecrets(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    Key plain(provider), wrapped(provider), transported(provider);
    const std::wstring_view mode(L"ChainingModeECB\0", 16);
    const ByteView ecb(reinterpret_cast<const BYTE*>(mode.data()), 2 * mode.size());
    const Bytes value = thread.bytes(16);
    const Bytes keyData = concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1, 16}), value});
    askToStoreAes(thread, "ImportKey KeyDataBlob", plain.importing(L"KeyDataBlob", keyData), value);
    askToStoreAes(thread, "ImportKey OpaqueKeyBlob", wrapped.importing(L"OpaqueKeyBlob", wrappedKey), aesText);
    const Bytes blob = reversed(transportedKey(known));
    if (!thread.ask("ImportKey OpaqueTransport", transported.importing(L"OpaqueTransport", blob, rsa.handle))) return;
    thread.ask("SetKeyProperty IV", [&] { return transported.set(L"IV", aesIv); });
    const bool chained = thread.oneIn(2);
    if (!chained) thread.ask("SetKeyProperty ChainingMode", [&] { return transported.set(L"ChainingMode", ecb); });
    const Bytes& cipher = chained ? aesCbcCipher : aesCipher;
    const auto text = transported.fetch("Decrypt, AES", 0, 0, &Table::Decrypt, dataOf(cipher), sizeOf(cipher), nullptr);
    if (text) judgePlainText(thread, "Decrypt, AES", *text, aesText);
}

std::optional<Bytes> exported(const Key& key)
{
    return key.fetch("ExportKey", 0, 0, &Table::ExportKey, NCRYPT_KEY_HANDLE{0}, BCRYPT_RSAPUBLIC_BLOB, nullptr);
}

void exportAndImport(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    if (const auto blob = exported(rsa))
        thread.require(blob == rsaPublicBlob(known.rsa.publicKey), "ExportKey", "it is another blob");
    Key imported(provider);
    if (thread.ask("ImportKey RSAPUBLICBLOB", imported.importing(BCRYPT_RSAPUBLIC_BLOB, rsaPublicBlob(known.strangersKey))))
        verify(thread, imported, softtoken::digest(softtoken::sha256, aesText), known.strangersSignature);
}

void readCertificate(const Key& key, const Bytes& known)
{
    const auto read = key.fetch("GetKeyProperty SmartCardKeyCertificate", 0, 0, &Table::GetKeyProperty, certificateProperty);
    key.provider.thread.require(!read || read == known, "GetKeyProperty SmartCardKeyCertificate", "it is another certificate");
}

// The interface releases the outer blocks alone. What it leaves is given back here, so that what the process holds can be
// compared: it is all from the C runtime's heap, and a list follows the index in an enumeration's state.
void enumerate(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    const Table& table = *provider.table;
    int found = 0;
    void* state = nullptr;
    thread.ask("EnumKeys", [&] {
        for (NCryptKeyName* name = nullptr;; table.FreeBuffer(name)) {
            const SECURITY_STATUS status = table.EnumKeys(provider.handle, nullptr, &name, &state, 0);
            if (status != 0) return status == NTE_NO_MORE_ITEMS ? (found == 2 ? 0 : noCode) : status;
            found += name->pszName == toWide(known.rsa.name) || name->pszName == toWide(known.curve.name);
            std::free(name->pszName);
            std::free(name->pszAlgid);
        }
    });
    if (state) std::free(static_cast<void**>(state)[1]);
    table.FreeBuffer(state);
    std::wstring names;
    const bool done = thread.ask("EnumAlgorithms", [&] {
        DWORD count = 0;
        NCryptAlgorithmName* list = nullptr;
        if (const SECURITY_STATUS status = table.EnumAlgorithms(provider.handle, 0, &count, &list, 0)) return status;
        for (DWORD i = 0; i < count; std::free(list[i++].pszName)) names.append(list[i].pszName) += L' ';
        return table.FreeBuffer(list);
    });
    thread.require(!done || names == L"RSA ECDSA_P256 ECDSA_P384 ECDSA_P521 ", "EnumAlgorithms", "they are other ones");
}

SECURITY_STATUS setPin(const Key& key, bool ofKey, const char* text)
{
    const auto pin = reinterpret_cast<PBYTE>(const_cast<char*>(text));
    return ofKey ? key.call(&Table::SetKeyProperty, L"SmartCardPin", pin, DWORD{0}, DWORD{0})
                 : key.provider.table->SetProviderProperty(key.provider.handle, L"SmartCardPin", pin, 0, 0);
}

void enterWrongPin(const Key& key, CallName call, bool ofKey)
{
    if (const WrongPin now(key.provider.thread.board); now)
        key.provider.thread.askInVain(call, NTE_VALIDATION_FAILED, [&] { return setPin(key, ofKey, wrongPin); });
}

void enterPin(const Session& session)
{
    const Key& key = session.rsa;
    enterWrongPin(key, "SetProviderProperty SmartCardPin, wrong", false);
    enterWrongPin(key, "SetKeyProperty SmartCardPin, wrong", true);
    session.thread.ask("SetProviderProperty SmartCardPin", [&] { return setPin(key, false, rightPin); });
    session.thread.ask("SetKeyProperty SmartCardPin", [&] { return setPin(key, true, rightPin); });
    session.thread.ask("PromptUser", [&] { return key.call(&Table::PromptUser, L"sign", DWORD{0}); });
}

// It is its maker's alone: nobody else deletes it, or changes its certificate.
void makeKey(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    Key key(provider);
    if (!thread.ask("CreatePersistedKey", [&] {
            return provider.table->CreatePersistedKey(provider.handle, &key.handle, L"ECDSA_P256", L"soak", AT_SIGNATURE, 0);
        }))
        return;
    if (!thread.ask("FinalizeKey", [&] { return key.call(&Table::FinalizeKey, DWORD{0}); })) return;
    // It is exported as the token gives it.
    const auto blob = exported(key);
    if (!blob) return;
    const auto isIt = [&](const auto& pair) {
        return rsaPublicBlob(pair.publicKey) == *blob && pair.algorithm == algorithmP256 && pair.usage == usageSigning;
    };
    const softtoken::TokenState token = tokenNow();
    const auto pair = std::ranges::find_if(token.keyPairs, isIt);
    thread.require(pair != token.keyPairs.end(), "FinalizeKey", "the token does not hold it");
    if (pair == token.keyPairs.end()) return;
    const ByteView point = lastOf(pair->publicKey, 64);
    const Bytes digest = thread.bytes(32);
    if (const auto made = signature(key, digest)) judgeSignature(thread, "SignHash", point, digest, *made);
    // That of the other key on a curve, for this one: nobody looks at its issuer's signature.
    Bytes certificate = known.curve.chain.front();
    std::ranges::copy(point, std::ranges::search(certificate, known.curve.publicKey).begin());
    if (thread.ask("SetKeyProperty SmartCardKeyCertificate", [&] { return key.set(certificateProperty, certificate); })) {
        thread.require(std::ranges::count(tokenNow().certificates, certificate, &softtoken::StoredCertificate::der) == 1,
                       "SetKeyProperty SmartCardKeyCertificate", "the token does not hold it");
        readCertificate(key, certificate);
    }
    if (thread.ask("DeleteKey", [&] { return key.call(&Table::DeleteKey, DWORD{0}); }))
        thread.require(std::ranges::none_of(tokenNow().keyPairs, isIt), "DeleteKey", "the token still holds it");
}

constexpr void (*jobs[])(const Session&) = {
    sign,
    sign,
    encryptAndDecrypt,
    importSecrets,
    exportAndImport,
    enumerate,
    enterPin,
    makeKey,
    [](const Session& session) { readCertificate(session.rsa, session.known.rsa.chain.front()); },
};

} // namespace

void useKeyStorage(Thread& thread, const Known& known)
{
    const Provider provider(thread);
    Key rsa(provider), curve(provider);
    if (!provider.handle || !rsa.open(known.rsa) || !curve.open(known.curve)) return;
    const Session session{thread, known, provider, rsa, curve};
    for (std::size_t count = thread.below(20); count > 0; --count) jobs[thread.below(std::size(jobs))](session);
}

void enterWrongPins(Thread& thread, const Known& known)
{
    const Provider provider(thread);
    Key key(provider);
    if (!provider.handle || !key.open(known.rsa)) return;
    enterWrongPin(key, "SetProviderProperty SmartCardPin, wrong", false);
    enterWrongPin(key, "SetKeyProperty SmartCardPin, wrong", true);
    enterWrongPinsByCryptoApi(thread, known);
    // By the dialog, which is cancelled after that.
    thread.askInVain("PromptUser", NTE_FAIL, [&] { return provider.table->PromptUser(provider.handle, 0, L"sign", 0); });
}

void playLastAct(Thread& thread, const Known& known, std::size_t process, const std::function<void(Stage)>& reach)
{
    reach(Stage::fresh);
    const Provider provider(thread);
    Key key(provider);
    if (!provider.handle || !key.open(known.rsa)) return;
    const auto prompt = [&] { return provider.table->PromptUser(provider.handle, 0, L"sign", 0); };
    const auto setRightPin = [&] { return setPin(key, false, rightPin); };
    const auto signSilently = [&] {
        Bytes room(256);
        DWORD size = 0;
        return key.call(&Table::SignHash, nullptr, dataOf(aesKey), sizeOf(aesKey), room.data(), sizeOf(room), &size,
                        DWORD{NCRYPT_PAD_PKCS1_FLAG | NCRYPT_SILENT_FLAG});
    };
    const auto mustSign = [&] { thread.ask("SignHash, silent, with a PIN", signSilently); };
    const auto mustLackPin = [&] { thread.askInVain("SignHash, silent, without one", NTE_SILENT_CONTEXT, signSilently); };

    mustLackPin();
    // Under the open session: from now on the module takes none for a validated PIN.
    thread.ask("PromptUser", prompt);
    mustSign();
    reach(Stage::wrong);
    if (process == 0) {
        // The last prompt is cancelled, and leaves nothing.
        enterWrongPins(thread, known);
        mustLackPin();
    }
    reach(Stage::locked);
    if (process == 0) {
        // Both are lost within one prompt; then not even the right PIN is taken.
        thread.askInVain("PromptUser", NTE_FAIL, prompt);
        thread.askInVain("SetProviderProperty SmartCardPin, wrong", NTE_VALIDATION_FAILED, setRightPin);
        mustLackPin();
    }
    reach(Stage::given);
    // In each process another way.
    if (process == 0)
        thread.ask("PromptUser", prompt);
    else if (process == 1)
        decryptByCryptoApi(thread, known);
    else
        thread.ask("SetProviderProperty SmartCardPin", setRightPin);
    mustSign();
    reach(Stage::stale);
    // The user is not asked again, nor an attempt lost.
    thread.askInVain("SignHash, silent, with a stale PIN", NTE_INTERNAL_ERROR, signSilently);
    reach(Stage::pulled);
    // For longer than the module's monitor takes for two looks.
    Sleep(2500);
    reach(Stage::plugged);
    mustLackPin();
}

} // namespace quelta::soak
