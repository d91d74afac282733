#include "soak/known.h"

#include "common/hex.h"
#include "crypto/bcrypt_objects.h"
#include "crypto/big_number.h"
#include "crypto/key_encoding.h"
#include "crypto/rsa_padding.h"
#include "store/files.h"
#include "store/token_store.h"

namespace quelta::soak {

namespace {

constexpr std::size_t p256Size = 32;

KnownKey keyLabelled(const softtoken::TokenState& token, std::string_view label, std::size_t keySize)
{
    const auto pair = std::ranges::find(token.keyPairs, label, &softtoken::StoredKeyPair::label);
    if (pair == token.keyPairs.end()) throw std::runtime_error("The token lacks a key: run ./soak.sh");
    KnownKey key{toHex(pair->id), toBytes(lastOf(pair->publicKey, keySize)), softtoken::decodePrivateKey(pair->privateKey), {}};
    for (const auto& certificate : token.certificates)
        if (std::ranges::equal(certificate.keyId, pair->id) || std::ranges::equal(certificate.chainOf, pair->id))
            key.chain.push_back(certificate.der);
    return key;
}

bool verifies(ByteView publicKey, ByteView digest, ByteView signature)
{
    const bool rsa = publicKey.size() > 2 * p256Size;
    const Bytes blob =
        rsa ? rsaPublicBlob(publicKey) : concat({littleEndian({BCRYPT_ECDSA_PUBLIC_P256_MAGIC, p256Size}), publicKey});
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

const Bytes aesKey = *fromHex("000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F");
const Bytes aesText = *fromHex("00112233445566778899AABBCCDDEEFF");
const Bytes aesCipher = *fromHex("8EA2B7CA516745BFEAFC49904B4960899F3B7504926F8BD36E3118E903A4CD4A");
const Bytes aesIv = *fromHex("000306090C0F1215181B1E2124272A2D");
const Bytes aesCbcCipher = *fromHex("776CB5EC103AE1C1728117BA6E40740910944580F960363BC7F977F15D3F59CD");
const Bytes wrappedKey = *fromHex("1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5");

Known readKnown()
{
    const softtoken::TokenState token = tokenNow();
    const softtoken::RsaPrivate stranger = softtoken::generateRsaKey(1024);
    return {keyLabelled(token, "rsa", rsaSize), keyLabelled(token, "curve", 2 * p256Size), stranger.shown.modulus,
            softtoken::rsaSign(stranger, softtoken::digest(softtoken::sha256, aesText))};
}

softtoken::TokenState tokenNow()
{
    const std::filesystem::path folder = softtoken::tokenFolder();
    const File lock = softtoken::lockFile(folder / "token.lock", softtoken::LockKind::shared);
    return softtoken::fromJson(toText(softtoken::readFile(folder / "token.json")));
}

bool judgeSignature(Thread& thread, CallName call, ByteView publicKey, ByteView digest, ByteView signature)
{
    ++thread.own.signatures;
    const bool right = verifies(publicKey, digest, signature);
    thread.require(right, call, "the signature does not verify");
    return right;
}

void judgePlainText(Thread& thread, CallName call, ByteView plain, ByteView expected)
{
    ++thread.own.decryptions;
    thread.require(sameBytes(plain, expected), call, "the text is not the one that was encrypted");
}

Secret drawnSecret(Thread& thread, const Known& known)
{
    const auto padding = thread.oneIn(2) ? softtoken::RsaPadding::pkcs1 : softtoken::RsaPadding::oaepSha1;
    const Bytes text = thread.bytes(1 + thread.below(200));
    return {padding, text, softtoken::rsaEncrypt({known.rsa.publicKey, Bytes{1, 0, 1}}, padding, text)};
}

void judgeCipher(Thread& thread, CallName call, const Known& known, ByteView cipher, const Secret& secret)
{
    const auto& key = std::get<softtoken::RsaPrivate>(known.rsa.privateKey);
    const softtoken::Modulus modulus(softtoken::numberFrom(key.shown.modulus));
    const softtoken::Number input = softtoken::remainder(softtoken::numberFrom(cipher), modulus.value());
    const Bytes block = softtoken::bigEndian(modulus.power(input, softtoken::numberFrom(key.exponent)), rsaSize);
    const auto text = secret.padding == softtoken::RsaPadding::pkcs1 ? softtoken::pkcs1Unpadded(block)
                                                                     : softtoken::oaepUnpadded(softtoken::sha1, block);
    thread.require(cipher.size() == rsaSize && text == secret.text, call, "it is no cipher of the text with that padding");
}

Bytes transportedKey(const Known& known)
{
    return softtoken::rsaEncrypt({known.rsa.publicKey, Bytes{1, 0, 1}}, softtoken::RsaPadding::pkcs1, aesKey);
}

Bytes rsaPublicBlob(ByteView publicKey)
{
    const DWORD size = sizeOf(publicKey);
    return concat({littleEndian({BCRYPT_RSAPUBLIC_MAGIC, size * 8, 3, size, 0, 0}), Bytes{1, 0, 1}, publicKey});
}

Bytes littleEndian(std::initializer_list<std::uint32_t> words)
{
    Bytes bytes;
    for (const std::uint32_t word : words) append(bytes, {reinterpret_cast<const unsigned char*>(&word), sizeof word});
    return bytes;
}

} // namespace quelta::soak
