// What is on the token, read past the module: its answers are held against this. The system's own cryptography (bcrypt.dll)
// judges what the token signs, the software token's own what the module encrypts.
#pragma once

#include "crypto/rsa.h"
#include "soak/thread.h"
#include "store/token_state.h"

namespace quelta::soak {

constexpr DWORD rsaSize = 256;

struct KnownKey {
    std::string name;
    // RSA's modulus, or the two coordinates of a curve.
    Bytes publicKey;
    softtoken::PrivateKey privateKey;
    // The key's own certificate first.
    std::vector<Bytes> chain;
};

struct Known {
    KnownKey rsa, curve;
    // Of a key that the token does not have: its modulus, and what it signed of aesText's SHA-256.
    Bytes strangersKey, strangersSignature;
};

// Throws unless the token was made by soak.sh.
Known readKnown();
// As it is now. Not by readToken, which keeps what it has read among what the process holds.
softtoken::TokenState tokenNow();

// For what leaves such an item on the token. Others remove it when the weather changes; its number is odd while it does.
template <class Work, class Item, class Matches>
void askToStore(Thread& thread, CallName call, Work work, std::vector<Item> softtoken::TokenState::*items, Matches matches)
{
    const std::uint32_t before = thread.board.weatherNumber;
    if (!thread.ask(call, work)) return;
    const bool stored = std::ranges::any_of(tokenNow().*items, matches);
    const bool changed = before % 2 != 0 || before != thread.board.weatherNumber;
    thread.require(stored || changed, call, "the token does not hold it");
}
template <class Work>
void askToStoreAes(Thread& thread, CallName call, Work work, ByteView value)
{
    askToStore(thread, call, work, &softtoken::TokenState::aesKeys,
               [&](const auto& key) { return sameBytes(key.value, value) && key.encryptionType == encryptionAes128; });
}

// Counts it, and has the system verify it: all most significant byte first.
bool judgeSignature(Thread& thread, CallName call, ByteView publicKey, ByteView digest, ByteView signature);
void judgePlainText(Thread& thread, CallName call, ByteView plain, ByteView expected);

// Some text, and a cipher of it that the module had no part in: one that errs both ways is right there and back.
struct Secret {
    softtoken::RsaPadding padding;
    Bytes text, cipher;
};
Secret drawnSecret(Thread& thread, const Known& known);
void judgeCipher(Thread& thread, CallName call, const Known& known, ByteView cipher, const Secret& secret);

// A key of AES-256, and what it makes of the text with the padding of PKCS#7: in ECB, and in CBC with this vector, the only one
// that is ever set, since it is the whole process's. The text again, wrapped under the token's key of AES-128 (RFC 3394, 4.1).
extern const Bytes aesKey, aesText, aesCipher, aesIv, aesCbcCipher, wrappedKey;
// The key, encrypted to the token's RSA key by the system.
Bytes transportedKey(const Known& known);

// BCRYPT_RSAPUBLIC_BLOB, with 65537 as the exponent.
Bytes rsaPublicBlob(ByteView publicKey);
Bytes littleEndian(std::initializer_list<std::uint32_t> words);
inline Bytes reversed(ByteView bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}
// No more than there are.
inline ByteView lastOf(ByteView bytes, std::size_t count)
{
    return bytes.last(std::min(bytes.size(), count));
}
// Both interfaces take bytes that they only read as if they wrote them.
inline PBYTE dataOf(ByteView bytes)
{
    return const_cast<PBYTE>(bytes.data());
}
inline DWORD sizeOf(ByteView bytes)
{
    return static_cast<DWORD>(bytes.size());
}

} // namespace quelta::soak
