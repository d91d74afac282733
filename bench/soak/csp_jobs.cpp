#include "base/provider_name.h"
#include "crypto/primitives.h"
#include "soak/jobs.h"
#include "soak/weather.h"

namespace quelta::soak {

namespace {

// Releases are judged, too.
template <auto release, CallName call>
class Owned {
public:
    explicit Owned(Thread& thread) : thread_(thread) {}
    ~Owned()
    {
        if (handle) thread_.ask(call, [&] { return release(handle); });
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    ULONG_PTR handle = 0;

private:
    Thread& thread_;
};

BOOL releaseContext(HCRYPTPROV context)
{
    return CryptReleaseContext(context, 0);
}

using Context = Owned<releaseContext, "CryptReleaseContext">;
using Key = Owned<CryptDestroyKey, "CryptDestroyKey">;
using Hash = Owned<CryptDestroyHash, "CryptDestroyHash">;

struct Session {
    Thread& thread;
    const Known& known;
    HCRYPTPROV context;
    HCRYPTKEY key;
};

bool feed(const Session& session, Hash& hash, ALG_ID algorithm, ByteView data)
{
    Thread& thread = session.thread;
    return thread.ask("CryptCreateHash", [&] { return CryptCreateHash(session.context, algorithm, 0, 0, &hash.handle); }) &&
           thread.ask("CryptHashData", [&] { return CryptHashData(hash.handle, data.data(), sizeOf(data), 0); });
}

void sign(const Session& session)
{
    Thread& thread = session.thread;
    const KnownDigest& kind = knownDigests[thread.below(4)];
    const Bytes data = thread.bytes(1 + thread.below(3000));
    Hash hash(thread);
    if (!feed(session, hash, kind.algId, data)) return;
    auto signature = thread.fetch("CryptSignHash", [&](BYTE* room, DWORD* size) {
        return CryptSignHashA(hash.handle, AT_SIGNATURE, nullptr, 0, room, size);
    });
    if (!signature) return;
    judgeSignature(thread, "CryptSignHash", session.known.rsa.publicKey, softtoken::digest(kind, data), reversed(*signature));
    const auto verify = [&] {
        return CryptVerifySignatureA(hash.handle, signature->data(), sizeOf(*signature), session.key, nullptr, 0);
    };
    thread.ask("CryptVerifySignature", verify);
    signature->at(thread.below(signature->size())) ^= 1;
    thread.askInVain("CryptVerifySignature, damaged", NTE_BAD_SIGNATURE, verify);
}

void hash(const Session& session)
{
    Thread& thread = session.thread;
    const KnownDigest& kind = thread.oneIn(2) ? softtoken::sha1 : softtoken::sha256;
    const Bytes data = thread.bytes(1 + thread.below(3000));
    Hash hash(thread);
    if (!feed(session, hash, kind.algId, data)) return;
    const auto value = thread.fetch("CryptGetHashParam HP_HASHVAL", [&](BYTE* room, DWORD* size) {
        return CryptGetHashParam(hash.handle, HP_HASHVAL, room, size, 0);
    });
    if (value) thread.require(value == softtoken::digest(kind, data), "CryptGetHashParam HP_HASHVAL", "it is another digest");
}

void decrypt(const Session& session)
{
    Thread& thread = session.thread;
    const DWORD padding = thread.oneIn(2) ? CRYPT_OAEP : 0;
    const Bytes plain = thread.bytes(1 + thread.below(200));
    Bytes data = plain;
    data.resize(session.known.rsa.publicKey.size());
    DWORD size = sizeOf(plain);
    const auto encrypt = [&] { return CryptEncrypt(session.key, 0, TRUE, padding, data.data(), &size, sizeOf(data)); };
    if (thread.ask("CryptEncrypt", encrypt) &&
        thread.ask("CryptDecrypt", [&] { return CryptDecrypt(session.key, 0, TRUE, padding, data.data(), &size); }))
        judgePlainText(thread, "CryptDecrypt", ByteView(data).first(size), plain);
}

// A BLOBHEADER, and what follows it.
Bytes blob(BYTE type, ALG_ID algorithm, DWORD word, ByteView rest)
{
    return concat({Bytes{type, 2, 0, 0}, littleEndian({algorithm, word}), rest});
}

bool import(const Session& session, CallName call, const Bytes& blob, Key& key)
{
    return session.thread.ask(
        call, [&] { return CryptImportKey(session.context, blob.data(), sizeOf(blob), session.key, 0, &key.handle); });
}

void importSecrets(const Session& session)
{
    Thread& thread = session.thread;
    Key plain(thread), wrapped(thread), transported(thread);
    import(session, "CryptImportKey PLAINTEXTKEYBLOB", blob(PLAINTEXTKEYBLOB, CALG_AES_128, 16, thread.bytes(16)), plain);
    // Without the word after the header, but with one at the end that is no part of the key.
    Bytes wrapping = blob(SYMMETRICWRAPKEYBLOB, CALG_AES_128, 0, {});
    wrapping.insert(wrapping.begin() + 8, wrappedKey.begin(), wrappedKey.end());
    import(session, "CryptImportKey SYMMETRICWRAPKEYBLOB", wrapping, wrapped);
    const Bytes simple = blob(SIMPLEBLOB, CALG_AES_128, CALG_RSA_KEYX, reversed(transportedKey(session.known)));
    if (!import(session, "CryptImportKey SIMPLEBLOB", simple, transported)) return;
    Bytes data = aesCipher;
    DWORD size = sizeOf(data);
    if (thread.ask("CryptDecrypt, AES", [&] { return CryptDecrypt(transported.handle, 0, TRUE, 0, data.data(), &size); }))
        judgePlainText(thread, "CryptDecrypt, AES", ByteView(data).first(size), aesText);
}

void exportAndImport(const Session& session)
{
    Thread& thread = session.thread;
    Key imported(thread);
    const auto exported = thread.fetch(
        "CryptExportKey", [&](BYTE* room, DWORD* size) { return CryptExportKey(session.key, 0, PUBLICKEYBLOB, 0, room, size); });
    if (!exported) return;
    const Bytes modulus = reversed(session.known.rsa.publicKey);
    thread.require(sameBytes(lastOf(*exported, modulus.size()), modulus), "CryptExportKey", "it is another key");
    import(session, "CryptImportKey PUBLICKEYBLOB", *exported, imported);
}

void readCertificates(const Session& session)
{
    Thread& thread = session.thread;
    const Bytes& known = session.known.rsa.certificate;
    const auto own = thread.fetch("CryptGetKeyParam KP_CERTIFICATE", [&](BYTE* room, DWORD* size) {
        return CryptGetKeyParam(session.key, KP_CERTIFICATE, room, size, 0);
    });
    if (own) thread.require(own == known, "CryptGetKeyParam KP_CERTIFICATE", "it is another certificate");
    const auto chain = thread.fetch("CryptGetProvParam PP_CERTCHAIN", [&](BYTE* room, DWORD* size) {
        return CryptGetProvParam(session.context, PP_CERTCHAIN, room, size, 0);
    });
    if (chain)
        thread.require(!std::ranges::search(*chain, known).empty(), "CryptGetProvParam PP_CERTCHAIN",
                       "the key's certificate is not in it");
}

void enumerate(const Session& session)
{
    session.thread.ask("CryptGetProvParam PP_ENUMCONTAINERS", [&] {
        std::array<BYTE, 64> name{};
        for (DWORD flags = CRYPT_FIRST;; flags = CRYPT_NEXT) {
            DWORD size = name.size();
            if (!CryptGetProvParam(session.context, PP_ENUMCONTAINERS, name.data(), &size, flags))
                return GetLastError() == ERROR_NO_MORE_ITEMS;
        }
    });
    const auto spec = session.thread.fetch("CryptGetProvParam PP_KEYSPEC", [&](BYTE* room, DWORD* size) {
        return CryptGetProvParam(session.context, PP_KEYSPEC, room, size, 0);
    });
    if (spec) session.thread.require(*spec == littleEndian({AT_SIGNATURE}), "CryptGetProvParam PP_KEYSPEC", "it is another one");
}

void enterWrongPin(const Session& session)
{
    if (const WrongPin now(session.thread.board); now)
        session.thread.askInVain("CryptSetProvParam PIN, wrong", NTE_KEYSET_ENTRY_BAD, [&] {
            return CryptSetProvParam(session.context, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(wrongPin), 0);
        });
}

void enterPin(const Session& session)
{
    enterWrongPin(session);
    session.thread.ask("CryptSetProvParam PIN", [&] {
        return CryptSetProvParam(session.context, PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(rightPin), 0);
    });
}

void drawRandom(const Session& session)
{
    Bytes random(16 + session.thread.below(500));
    if (session.thread.ask("CryptGenRandom", [&] { return CryptGenRandom(session.context, sizeOf(random), random.data()); }))
        session.thread.require(!sameBytes(lastOf(random, 16), Bytes(16)), "CryptGenRandom", "the bytes are zeros");
}

// The token makes RSA-2048 of it, which takes its time.
void makeKey(const Session& session)
{
    Key key(session.thread);
    if (session.thread.oneIn(8))
        session.thread.ask("CryptGenKey", [&] { return CryptGenKey(session.context, CALG_RSA_SIGN, 0, &key.handle); });
}

constexpr void (*jobs[])(const Session&) = {
    sign,      sign,     hash,       decrypt, decrypt, importSecrets, exportAndImport, readCertificates,
    enumerate, enterPin, drawRandom, makeKey,
};

template <class Work>
void inSession(Thread& thread, const Known& known, Work work)
{
    Context context(thread);
    Key key(thread);
    const DWORD spec = thread.oneIn(2) ? AT_SIGNATURE : AT_KEYEXCHANGE;
    const bool acquired = thread.ask("CryptAcquireContext", [&] {
        return CryptAcquireContextA(&context.handle, known.rsa.name.c_str(), providerName, PROV_RSA_FULL, 0);
    });
    if (acquired && thread.ask("CryptGetUserKey", [&] { return CryptGetUserKey(context.handle, spec, &key.handle); }))
        work(Session{thread, known, context.handle, key.handle});
}

} // namespace

void useCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, [&](const Session& session) {
        for (std::size_t count = thread.below(20); count > 0; --count) jobs[thread.below(std::size(jobs))](session);
    });
}

void enterWrongPinByCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, enterWrongPin);
}

void decryptByCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, decrypt);
}

} // namespace quelta::soak
