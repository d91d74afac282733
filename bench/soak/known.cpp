#include "soak/known.h"

#include "base/hex.h"
#include "crypto/bcrypt_objects.h"
#include "crypto/rsa.h"
#include "store/token_store.h"

namespace quelta::soak {

namespace {

constexpr std::size_t p256Size = 32;

Bytes counting(unsigned step)
{
    Bytes bytes(16);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * step);
    return bytes;
}

KnownKey keyLabelled(const softtoken::TokenState& token, std::string_view label, std::size_t keySize)
{
    const auto pair = std::ranges::find(token.keyPairs, label, &softtoken::StoredKeyPair::label);
    if (pair == token.keyPairs.end()) throw std::runtime_error("The token lacks a key: run ./soak.sh");
    const auto belongs = [&](const auto& certificate) { return std::ranges::equal(certificate.keyId, pair->id); };
    const auto certificate = std::ranges::find_if(token.certificates, belongs);
    return {toHex(pair->id), toBytes(lastOf(pair->publicKey, keySize)),
            certificate == token.certificates.end() ? Bytes{} : certificate->der};
}

bool verifies(ByteView publicKey, ByteView digest, ByteView signature)
{
    const bool rsa = publicKey.size() > 2 * p256Size;
    const auto size = sizeOf(publicKey);
    const Bytes exponent{1, 0, 1};
    const Bytes blob =
        rsa ? concat({littleEndian({BCRYPT_RSAPUBLIC_MAGIC, size * 8, sizeOf(exponent), size, 0, 0}), exponent, publicKey})
            : concat({littleEndian({BCRYPT_ECDSA_PUBLIC_P256_MAGIC, p256Size}), publicKey});
    BCRYPT_KEY_HANDLE key = nullptr;
    if (BCryptImportKeyPair(softtoken::provider(rsa ? BCRYPT_RSA_ALGORITHM : BCRYPT_ECDSA_P256_ALGORITHM), nullptr,
                            rsa ? BCRYPT_RSAPUBLIC_BLOB : BCRYPT_ECCPUBLIC_BLOB, &key, dataOf(blob), sizeOf(blob), 0))
        return false;
    const BcryptKey owned(key);
    BCRYPT_PKCS1_PADDING_INFO padding{softtoken::digestOfSize(digest.size())->systemName};
    return BCryptVerifySignature(key, rsa ? &padding : nullptr, dataOf(digest), sizeOf(digest), dataOf(signature),
                                 sizeOf(signature), rsa ? BCRYPT_PAD_PKCS1 : 0) == 0;
}

} // namespace

const Bytes aesKey = counting(1);
const Bytes aesText = counting(0x11);
const Bytes aesCipher = *fromHex("69C4E0D86A7B0430D8CDB78070B4C55A954F64F2E4E86E9EEE82D20216684899");
const Bytes wrappedKey = *fromHex("1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5");

Known readKnown()
{
    const softtoken::Reading token = softtoken::readToken(softtoken::tokenFolder());
    if (!token || !*token) throw std::runtime_error("There is no token to work with: run ./soak.sh");
    return {keyLabelled(**token, "rsa", 256), keyLabelled(**token, "curve", 2 * p256Size)};
}

void judgeSignature(Thread& thread, CallName call, ByteView publicKey, ByteView digest, ByteView signature)
{
    ++thread.own.signatures;
    thread.require(verifies(publicKey, digest, signature), call, "the signature does not verify");
}

void judgePlainText(Thread& thread, CallName call, ByteView plain, ByteView expected)
{
    ++thread.own.decryptions;
    thread.require(sameBytes(plain, expected), call, "the text is not the one that was encrypted");
}

Bytes transportedKey(const Known& known)
{
    return softtoken::rsaEncrypt({known.rsa.publicKey, Bytes{1, 0, 1}}, softtoken::RsaPadding::pkcs1, aesKey);
}

Bytes littleEndian(std::initializer_list<std::uint32_t> words)
{
    Bytes bytes;
    for (const std::uint32_t word : words) append(bytes, {reinterpret_cast<const unsigned char*>(&word), sizeof word});
    return bytes;
}

} // namespace quelta::soak
