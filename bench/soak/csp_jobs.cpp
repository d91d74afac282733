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

using Context = Owned<[](HCRYPTPROV context) { return CryptReleaseContext(context, 0); }, "CryptReleaseContext">;
using Key = Owned<CryptDestroyKey, "CryptDestroyKey">;
using Hash = Owned<CryptDestroyHash, "CryptDestroyHash">;

struct Session {
    Thread& thread;
    const Known& known;
    HCRYPTPROV context;
    DWORD spec;
    HCRYPTKEY key;
};

constexpr auto reading = [](auto get, ULONG_PTR handle, DWORD parameter) {
    return [=](BYTE* room, DWORD* size) { return get(handle, parameter, room, size, 0); };
};

bool feed(const Session& session, Hash& hash, const KnownDigest& kind, ByteView data)
{
    Thread& thread = session.thread;
    return thread.ask("CryptCreateHash", [&] { return CryptCreateHash(session.context, kind.algId, 0, 0, &hash.handle); }) &&
           thread.ask("CryptHashData", [&] { return CryptHashData(hash.handle, data.data(), sizeOf(data), 0); });
}

void verify(Thread& thread, const Hash& hash, HCRYPTKEY key, Bytes signature)
{
    const auto verifying = [&] {
        return CryptVerifySignatureA(hash.handle, signature.data(), sizeOf(signature), key, nullptr, 0);
    };
    if (!thread.ask("CryptVerifySignature", verifying)) return;
    signature.at(thread.below(signature.size())) ^= 1;
    thread.askInVain("CryptVerifySignature, damaged", NTE_BAD_SIGNATURE, verifying);
}

void sign(const Session& session)
{
    Thread& thread = session.thread;
    const KnownDigest& kind = knownDigests[thread.below(4)];
    const Bytes data = thread.bytes(1 + thread.below(3000));
    Hash hash(thread), fresh(thread);
    if (!feed(session, hash, kind, data)) return;
    const auto signature = thread.fetch("CryptSignHash", [&](BYTE* room, DWORD* size) {
        return CryptSignHashA(hash.handle, AT_SIGNATURE, nullptr, 0, room, size);
    });
    if (!signature || !judgeSignature(thread, "CryptSignHash", session.known.rsa.publicKey, softtoken::digest(kind, data),
                                      reversed(*signature)))
        return;
    // The module reads longer digests from hashes only that have signed.
    const bool longer = kind.size > softtoken::sha256.size;
    if (longer || feed(session, fresh, kind, data)) verify(thread, longer ? hash : fresh, session.key, *signature);
}

void hash(const Session& session)
{
    Thread& thread = session.thread;
    const KnownDigest& kind = thread.oneIn(2) ? softtoken::sha1 : softtoken::sha256;
    const Bytes data = thread.bytes(1 + thread.below(3000));
    Hash hash(thread);
    if (!feed(session, hash, kind, data)) return;
    const auto value = thread.fetch("CryptGetHashParam HP_HASHVAL", reading(CryptGetHashParam, hash.handle, HP_HASHVAL));
    if (value) thread.require(value == softtoken::digest(kind, data), "CryptGetHashParam HP_HASHVAL", "it is another digest");
}

void judgeDecryption(Thread& thread, CallName call, HCRYPTKEY key, DWORD flags, Bytes data, ByteView text)
{
    DWORD size = sizeOf(data);
    if (!thread.ask(call, [&] { return CryptDecrypt(key, 0, TRUE, flags, data.data(), &size); })) return;
    data.resize(size);
    judgePlainText(thread, call, data, text);
}

void encryptAndDecrypt(const Session& session)
{
    const auto& [thread, known, context, spec, key] = session;
    const Secret secret = drawnSecret(thread, known);
    const DWORD flags = secret.padding == softtoken::RsaPadding::pkcs1 ? 0 : CRYPT_OAEP;
    Bytes data = secret.text;
    data.resize(rsaSize);
    DWORD size = sizeOf(secret.text);
    if (thread.ask("CryptEncrypt", [&] { return CryptEncrypt(session.key, 0, TRUE, flags, data.data(), &size, rsaSize); })) {
        data.resize(size);
        judgeCipher(thread, "CryptEncrypt", known, reversed(data), secret);
    }
    judgeDecryption(thread, "CryptDecrypt", session.key, flags, reversed(secret.cipher), secret.text);
}

// A BLOBHEADER, and what follows it.
Bytes blob(BYTE type, ALG_ID algorithm, DWORD word, ByteView rest)
{
    return concat({Bytes{type, 2, 0, 0}, littleEndian({algorithm, word}), rest});
}

Bytes publicBlob(ALG_ID algorithm, ByteView modulus)
{
    return blob(PUBLICKEYBLOB, algorithm, BCRYPT_RSAPUBLIC_MAGIC,
                concat({littleEndian({sizeOf(modulus) * 8, 65537}), reversed(modulus)}));
}

auto importing(const Session& session, const Bytes& blob, Key& key)
{
    return [&session, &blob, &key] {
        return CryptImportKey(session.context, blob.data(), sizeOf(blob), session.key, 0, &key.handle);
    };
}

void importSecrets(const Session& session)
{
    Thread& thread = session.thread;
    Key plain(thread), wrapped(thread), transported(thread);
    const Bytes value = thread.bytes(16);
    askToStoreAes(thread, "CryptImportKey PLAINTEXTKEYBLOB",
                  importing(session, blob(PLAINTEXTKEYBLOB, CALG_AES_128, 16, value), plain), value);
    // Without the word after the header, but with one at the end that is no part of the key.
    Bytes wrapping = blob(SYMMETRICWRAPKEYBLOB, CALG_AES_128, 0, {});
    wrapping.insert(wrapping.begin() + 8, wrappedKey.begin(), wrappedKey.end());
    askToStoreAes(thread, "CryptImportKey SYMMETRICWRAPKEYBLOB", importing(session, wrapping, wrapped), aesText);
    const Bytes simple = blob(SIMPLEBLOB, CALG_AES_256, CALG_RSA_KEYX, reversed(transportedKey(session.known)));
    if (!thread.ask("CryptImportKey SIMPLEBLOB", importing(session, simple, transported))) return;
    thread.ask("CryptSetKeyParam KP_IV", [&] { return CryptSetKeyParam(transported.handle, KP_IV, aesIv.data(), 0); });
    judgeDecryption(thread, "CryptDecrypt, AES", transported.handle, 0, aesCbcCipher, aesText);
}

// The imported one is none that the module could take in its place.
void exportAndImport(const Session& session)
{
    const auto& [thread, known, context, spec, key] = session;
    const auto exported = thread.fetch(
        "CryptExportKey", [&](BYTE* room, DWORD* size) { return CryptExportKey(session.key, 0, PUBLICKEYBLOB, 0, room, size); });
    if (exported)
        thread.require(exported == publicBlob(spec == AT_SIGNATURE ? CALG_RSA_SIGN : CALG_RSA_KEYX, known.rsa.publicKey),
                       "CryptExportKey", "it is another blob");
    Key imported(thread);
    Hash hash(thread);
    if (thread.ask("CryptImportKey PUBLICKEYBLOB", importing(session, publicBlob(CALG_RSA_SIGN, known.strangersKey), imported)) &&
        feed(session, hash, softtoken::sha256, aesText))
        verify(thread, hash, imported.handle, reversed(known.strangersSignature));
}

void readCertificates(const Session& session)
{
    Thread& thread = session.thread;
    const std::vector<Bytes>& known = session.known.rsa.chain;
    const auto own = thread.fetch("CryptGetKeyParam KP_CERTIFICATE", reading(CryptGetKeyParam, session.key, KP_CERTIFICATE));
    if (own) thread.require(own == known.front(), "CryptGetKeyParam KP_CERTIFICATE", "it is another certificate");
    const auto chain = thread.fetch("CryptGetProvParam PP_CERTCHAIN", reading(CryptGetProvParam, session.context, PP_CERTCHAIN));
    if (!chain) return;
    // The system sorts them.
    for (const Bytes& certificate : known)
        thread.require(!std::ranges::search(*chain, certificate).empty(), "CryptGetProvParam PP_CERTCHAIN",
                       "a certificate is not in it");
}

void enumerate(const Session& session)
{
    const auto& [thread, known, context, spec, key] = session;
    thread.ask("CryptGetProvParam PP_ENUMCONTAINERS", [&] {
        std::array<char, 64> name{};
        int found = 0;
        for (DWORD flags = CRYPT_FIRST;; flags = CRYPT_NEXT) {
            DWORD size = name.size();
            if (!CryptGetProvParam(session.context, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name.data()), &size, flags))
                return GetLastError() != ERROR_NO_MORE_ITEMS ? static_cast<Code>(GetLastError()) : found == 2 ? 0 : noCode;
            found += known.rsa.name == name.data() || known.curve.name == name.data();
        }
    });
    const auto told = thread.fetch("CryptGetProvParam PP_KEYSPEC", reading(CryptGetProvParam, session.context, PP_KEYSPEC));
    if (told) thread.require(*told == littleEndian({AT_SIGNATURE}), "CryptGetProvParam PP_KEYSPEC", "it is another one");
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
    Thread& thread = session.thread;
    if (!thread.oneIn(8)) return;
    Key key(thread);
    const auto& [algorithm, usage] =
        thread.oneIn(2) ? std::pair(CALG_RSA_SIGN, usageSigning) : std::pair(CALG_RSA_KEYX, usageKeyExchange);
    askToStore(
        thread, "CryptGenKey", [&] { return CryptGenKey(session.context, algorithm, 0, &key.handle); },
        &softtoken::TokenState::keyPairs,
        [&](const auto& pair) { return pair.algorithm == algorithmRsa2048 && pair.usage == usage; });
}

constexpr void (*jobs[])(const Session&) = {
    sign,      sign,     hash,       encryptAndDecrypt, encryptAndDecrypt, importSecrets, exportAndImport, readCertificates,
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
        work(Session{thread, known, context.handle, spec, key.handle});
}

} // namespace

void useCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, [&](const Session& session) {
        for (std::size_t count = thread.below(20); count > 0; --count) jobs[thread.below(std::size(jobs))](session);
    });
}

void enterWrongPinsByCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, [](const Session& session) {
        enterWrongPin(session);
        Key key(session.thread);
        session.thread.askInVain("CryptGenKey", NTE_FAIL,
                                 [&] { return CryptGenKey(session.context, CALG_RSA_SIGN, 0, &key.handle); });
    });
}

void decryptByCryptoApi(Thread& thread, const Known& known)
{
    inSession(thread, known, encryptAndDecrypt);
}

} // namespace quelta::soak
