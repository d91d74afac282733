#include "base/key_storage_table.h"
#include "base/provider_name.h"
#include "base/text.h"
#include "soak/jobs.h"
#include "soak/weather.h"

#include <cstdlib>

namespace quelta::soak {

namespace {

using Table = KeyStorageFunctionTable;

class Provider {
public:
    explicit Provider(Thread& asking) : thread(asking)
    {
        if (!thread.ask("LoadLibrary", [&] { return (module_ = LoadLibraryA(moduleName)) != nullptr; })) return;
        void* const entry = reinterpret_cast<void*>(GetProcAddress(module_, "GetKeyStorageInterface"));
        reinterpret_cast<GetKeyStorageInterfaceFunction>(entry)(wideProviderName, &table, 0);
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
    explicit Key(const Provider& provider) : provider_(provider) {}
    ~Key()
    {
        if (handle) provider_.thread.ask("FreeKey", [&] { return call(&Table::FreeKey); });
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    bool open(const KnownKey& known)
    {
        return provider_.thread.ask(
            "OpenKey", [&] { return provider_.table->OpenKey(provider_.handle, &handle, toWide(known.name).c_str(), 0, 0); });
    }
    bool import(CallName name, const wchar_t* type, const Bytes& blob, NCRYPT_KEY_HANDLE unwrapping = 0)
    {
        return provider_.thread.ask(name, [&] {
            return provider_.table->ImportKey(provider_.handle, unwrapping, type, nullptr, &handle, dataOf(blob), sizeOf(blob),
                                              0);
        });
    }
    template <class Slot, class... Arguments>
    SECURITY_STATUS call(Slot Table::*slot, Arguments... arguments) const
    {
        return (provider_.table->*slot)(provider_.handle, handle, arguments...);
    }
    template <class Slot, class... Arguments>
    std::optional<Bytes> fetch(CallName name, DWORD flags, Slot Table::*slot, Arguments... arguments) const
    {
        return provider_.thread.fetch(
            name, [&](BYTE* room, DWORD* size) { return call(slot, arguments..., room, *size, size, flags); });
    }

    NCRYPT_KEY_HANDLE handle = 0;

private:
    const Provider& provider_;
};

struct Session {
    Thread& thread;
    const Known& known;
    const Provider& provider;
    const Key& rsa;
    const Key& curve;
};

// The size that is told for a key on a curve is not that of its signatures.
Bytes signature(const Session& session, const Key& key, const Bytes& digest)
{
    Bytes room(256);
    DWORD size = sizeOf(room);
    const auto signing = [&](DWORD flags) {
        return [&, flags] {
            return key.call(&Table::SignHash, nullptr, dataOf(digest), sizeOf(digest), room.data(), sizeOf(room), &size,
                            flags | NCRYPT_PAD_PKCS1_FLAG);
        };
    };
    const bool done = session.thread.oneIn(4) ? session.thread.ask("SignHash, silent", signing(NCRYPT_SILENT_FLAG))
                                              : session.thread.ask("SignHash", signing(0));
    room.resize(done ? size : 0);
    return room;
}

void sign(const Session& session)
{
    Thread& thread = session.thread;
    const bool rsa = thread.oneIn(2);
    const Key& key = rsa ? session.rsa : session.curve;
    const Bytes digest = thread.bytes(knownDigests[rsa ? thread.below(4) : 0].size);
    Bytes made = signature(session, key, digest);
    if (made.empty()) return;
    judgeSignature(thread, "SignHash", (rsa ? session.known.rsa : session.known.curve).publicKey, digest, made);
    const auto verify = [&] {
        return key.call(&Table::VerifySignature, nullptr, dataOf(digest), sizeOf(digest), made.data(), sizeOf(made),
                        DWORD{NCRYPT_PAD_PKCS1_FLAG});
    };
    thread.ask("VerifySignature", verify);
    made[thread.below(made.size())] ^= 1;
    thread.askInVain("VerifySignature, damaged", NTE_BAD_SIGNATURE, verify);
}

void decrypt(const Session& session)
{
    const DWORD padding = session.thread.oneIn(2) ? NCRYPT_PAD_OAEP_FLAG : NCRYPT_PAD_PKCS1_FLAG;
    const Bytes text = session.thread.bytes(1 + session.thread.below(200));
    const auto cipher = session.rsa.fetch("Encrypt", padding, &Table::Encrypt, dataOf(text), sizeOf(text), nullptr);
    if (!cipher) return;
    const auto plain = session.rsa.fetch("Decrypt", padding, &Table::Decrypt, dataOf(*cipher), sizeOf(*cipher), nullptr);
    if (plain) judgePlainText(session.thread, "Decrypt", *plain, text);
}

void importSecrets(const Session& session)
{
    Key plain(session.provider), wrapped(session.provider), transported(session.provider);
    const Bytes keyData = concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1, 16}), session.thread.bytes(16)});
    plain.import("ImportKey KeyDataBlob", L"KeyDataBlob", keyData);
    wrapped.import("ImportKey OpaqueKeyBlob", L"OpaqueKeyBlob", wrappedKey);
    const Bytes blob = reversed(transportedKey(session.known));
    if (!transported.import("ImportKey OpaqueTransport", L"OpaqueTransport", blob, session.rsa.handle)) return;
    std::wstring mode = L"ChainingModeECB";
    session.thread.ask("SetKeyProperty ChainingMode", [&] {
        return transported.call(&Table::SetKeyProperty, L"ChainingMode", reinterpret_cast<PBYTE>(mode.data()),
                                static_cast<DWORD>((mode.size() + 1) * sizeof(wchar_t)), DWORD{0});
    });
    const auto text = transported.fetch("Decrypt, AES", 0, &Table::Decrypt, dataOf(aesCipher), sizeOf(aesCipher), nullptr);
    if (text) judgePlainText(session.thread, "Decrypt, AES", *text, aesText);
}

std::optional<Bytes> exported(const Key& key)
{
    return key.fetch("ExportKey", 0, &Table::ExportKey, NCRYPT_KEY_HANDLE{0}, BCRYPT_RSAPUBLIC_BLOB, nullptr);
}

void exportAndImport(const Session& session)
{
    Key imported(session.provider);
    const Bytes& modulus = session.known.rsa.publicKey;
    const auto blob = exported(session.rsa);
    if (!blob) return;
    session.thread.require(sameBytes(lastOf(*blob, modulus.size()), modulus), "ExportKey", "it is another key");
    imported.import("ImportKey RSAPUBLICBLOB", BCRYPT_RSAPUBLIC_BLOB, *blob);
}

void readAndStoreCertificate(const Session& session)
{
    constexpr const wchar_t* property = L"SmartCardKeyCertificate";
    const Bytes& known = session.known.rsa.certificate;
    const auto read = session.rsa.fetch("GetKeyProperty SmartCardKeyCertificate", 0, &Table::GetKeyProperty, property);
    if (read) session.thread.require(read == known, "GetKeyProperty SmartCardKeyCertificate", "it is another certificate");
    session.thread.ask("SetKeyProperty SmartCardKeyCertificate", [&] {
        return session.rsa.call(&Table::SetKeyProperty, property, dataOf(known), sizeOf(known), DWORD{0});
    });
}

// The interface releases the outer blocks alone. What it leaves is given back here, so that what the process holds can be
// compared: it is all from the C runtime's heap, and a list follows the index in an enumeration's state.
void enumerate(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    const Table& table = *provider.table;
    bool found = false;
    void* state = nullptr;
    thread.ask("EnumKeys", [&] {
        for (NCryptKeyName* name = nullptr;; table.FreeBuffer(name)) {
            const SECURITY_STATUS status = table.EnumKeys(provider.handle, nullptr, &name, &state, 0);
            if (status != 0) return status == NTE_NO_MORE_ITEMS ? (found ? 0 : noCode) : status;
            found |= name->pszName == toWide(known.rsa.name);
            std::free(name->pszName);
            std::free(name->pszAlgid);
        }
    });
    if (state) std::free(static_cast<void**>(state)[1]);
    table.FreeBuffer(state);
    thread.ask("EnumAlgorithms", [&] {
        DWORD count = 0;
        NCryptAlgorithmName* list = nullptr;
        if (const SECURITY_STATUS status = table.EnumAlgorithms(provider.handle, 0, &count, &list, 0)) return status;
        for (DWORD i = 0; i < count; ++i) std::free(list[i].pszName);
        return table.FreeBuffer(list);
    });
}

SECURITY_STATUS setPin(const Provider& provider, const char* pin)
{
    return provider.table->SetProviderProperty(provider.handle, L"SmartCardPin", reinterpret_cast<PBYTE>(const_cast<char*>(pin)),
                                               0, 0);
}

void enterWrongPin(const Provider& provider)
{
    if (const WrongPin now(provider.thread.board); now)
        provider.thread.askInVain("SetProviderProperty SmartCardPin, wrong", NTE_VALIDATION_FAILED,
                                  [&] { return setPin(provider, wrongPin); });
}

void enterPin(const Session& session)
{
    enterWrongPin(session.provider);
    session.thread.ask("SetProviderProperty SmartCardPin", [&] { return setPin(session.provider, rightPin); });
    session.thread.ask("PromptUser", [&] { return session.rsa.call(&Table::PromptUser, L"sign", DWORD{0}); });
}

void makeKey(const Session& session)
{
    const auto& [thread, known, provider, rsa, curve] = session;
    Key key(provider);
    const Bytes digest = thread.bytes(32);
    if (!thread.ask("CreatePersistedKey", [&] {
            return provider.table->CreatePersistedKey(provider.handle, &key.handle, L"ECDSA_P256", L"soak", AT_SIGNATURE, 0);
        }))
        return;
    if (!thread.ask("FinalizeKey", [&] { return key.call(&Table::FinalizeKey, DWORD{0}); })) return;
    // It is exported as the token gives it, with the coordinates at its end.
    const auto blob = exported(key);
    const Bytes made = signature(session, key, digest);
    if (blob && !made.empty()) judgeSignature(thread, "SignHash", lastOf(*blob, 64), digest, made);
    thread.ask("DeleteKey", [&] { return key.call(&Table::DeleteKey, DWORD{0}); });
}

constexpr void (*jobs[])(const Session&) = {
    sign, sign, decrypt, importSecrets, exportAndImport, readAndStoreCertificate, enumerate, enterPin, makeKey,
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
    if (!provider.handle) return;
    enterWrongPin(provider);
    enterWrongPinByCryptoApi(thread, known);
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
    const auto setRightPin = [&] { return setPin(provider, rightPin); };
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
