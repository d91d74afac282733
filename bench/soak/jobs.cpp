#include "common/hex.h"
#include "crypto/rsa.h"
#include "soak/csp_session.h"
#include "soak/ksp_session.h"
#include "store/token_store.h"

#include <stdexcept>

namespace quelta::soak {

namespace {

// The answers are checked with these, by functions of the software token. They sign and encrypt RSA through bcrypt.dll, but
// verify and decrypt by arithmetic of their own.
struct Known {
    std::string keyName;
    softtoken::RsaPrivate key;
    Bytes certificate;
};

Known known;

// A key of AES-256, a text, and its cipher text in CBC with the padding of PKCS#7. All threads set the same vector, since the
// module has one for the whole process. `wrappedKey` is the text, wrapped under the token's AES-128 key (RFC 3394, 4.1).
const Bytes aesKey = *fromHex("000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F");
const Bytes aesText = *fromHex("00112233445566778899AABBCCDDEEFF");
const Bytes aesIv = *fromHex("000306090C0F1215181B1E2124272A2D");
const Bytes aesCipher = *fromHex("776CB5EC103AE1C1728117BA6E40740910944580F960363BC7F977F15D3F59CD");
const Bytes wrappedKey = *fromHex("1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5");

Bytes encryptedToToken(ByteView plain)
{
    return rsaEncrypt(known.key.shown, softtoken::RsaPadding::pkcs1, plain);
}

void judgeText(const Caller& caller, ByteView plain, ByteView text, const char* what)
{
    ++caller.board.decryptions;
    if (!sameBytes(plain, text))
        find(std::string("The text that the module ") + what + " is another one: look into the log at level 3");
}

void sign(auto& session, Caller& caller)
{
    const Bytes text = caller.bytes(1 + caller.below(3000));
    Bytes signature = session.sign(text);
    if (signature.empty()) return;
    if (!judgeSignature(caller, known.key.shown, digestOf(softtoken::sha256, text), signature)) return;
    session.verify(text, signature, false);
    signature[caller.below(signature.size())] ^= 1;
    session.verify(text, signature, true);
}

void encrypt(auto& session, Caller& caller)
{
    const Bytes text = caller.bytes(1 + caller.below(200)), cipher = session.encrypt(text);
    if (!cipher.empty()) judgeText(caller, rsaDecrypt(known.key, cipher).value_or(Bytes()), text, "encrypted");
}

void decrypt(auto& session, Caller& caller)
{
    const Bytes text = caller.bytes(1 + caller.below(200)), plain = session.decrypt(encryptedToToken(text));
    if (!plain.empty()) judgeText(caller, plain, text, "decrypted");
}

void decryptByAes(auto& session, Caller& caller)
{
    const Bytes plain = session.decryptUnder(encryptedToToken(aesKey), aesIv, aesCipher);
    if (!plain.empty()) judgeText(caller, plain, aesText, "decrypted by AES");
}

void readCertificates(auto& session, Caller&)
{
    for (const Bytes& answer : session.certificates())
        if (!answer.empty() && std::ranges::search(answer, known.certificate).empty())
            find("The module gives another certificate than the key's");
}

// A session makes each call and has its answer judged. The answer of a refused call is empty.
template <class Session>
constexpr void (*jobs[])(Session&, Caller&) = {
    sign,
    encrypt,
    decrypt,
    decryptByAes,
    [](Session& session, Caller& caller) { session.importSecrets(caller.bytes(16), wrappedKey); },
    readCertificates,
    [](Session& session, Caller&) { session.enumerateKeys(); },
    [](Session& session, Caller&) { session.enterPin(); },
    [](Session& session, Caller&) { session.makeKey(); },
};

template <class Session>
void doJobs(Caller& caller)
{
    Session session(caller);
    if (!session) return;
    for (std::size_t count = caller.below(20); count > 0; --count)
        jobs<Session>[caller.below(std::size(jobs<Session>))](session, caller);
}

template <class Session>
void enterWrongPinInto(Caller& caller)
{
    Session session(caller);
    if (!session) return;
    // The first signature asks for the PIN. Then the PIN is cached.
    sign(session, caller);
    if (session.enterWrongPin()) find("A wrong PIN was accepted");
    sign(session, caller);
}

} // namespace

void readToken()
{
    const softtoken::Reading token = softtoken::readToken(softtoken::tokenFolder());
    if (!token || !*token || (*token)->certificates.empty()) throw std::runtime_error("There is no token: run ./soak.sh");
    const softtoken::StoredKeyPair& pair = (*token)->keyPairs.front();
    known = {toHex(pair.id), std::get<softtoken::RsaPrivate>(softtoken::decodePrivateKey(pair.privateKey)),
             (*token)->certificates.front().der};
}

bool judgeSignature(const Caller& caller, const softtoken::PublicKey& key, ByteView digest, ByteView signature)
{
    ++caller.board.signatures;
    const bool right = verifyDigest(key, digest, signature);
    if (!right) find("A signature of the module does not verify: look into the log at level 3");
    return right;
}

void useInterface(Caller& caller)
{
    caller.oneIn(2) ? doJobs<CryptoApiSession>(caller) : doJobs<KeyStorageSession>(caller);
}

void enterWrongPins(Caller& caller)
{
    enterWrongPinInto<CryptoApiSession>(caller);
    enterWrongPinInto<KeyStorageSession>(caller);
}

} // namespace quelta::soak

namespace quelta::test {

std::string keyName(const std::string&)
{
    return soak::known.keyName;
}

} // namespace quelta::test
