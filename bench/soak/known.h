// What is on the token, read past the module: its answers are held against this. The system's own cryptography (bcrypt.dll)
// judges what the token signs.
#pragma once

#include "crypto/asymmetric_key.h"
#include "soak/thread.h"

namespace quelta::soak {

struct KnownKey {
    std::string name;
    // RSA's modulus, or the two coordinates of a curve.
    Bytes publicKey;
    Bytes certificate;
};

struct Known {
    KnownKey rsa, curve;
};

// Throws unless the token was made by soak.sh.
Known readKnown();

// Counts it, and has the system verify it: all most significant byte first.
void judgeSignature(Thread& thread, CallName call, ByteView publicKey, ByteView digest, ByteView signature);
void judgePlainText(Thread& thread, CallName call, ByteView plain, ByteView expected);

// A key of AES-128, what it makes of the text in ECB with the padding of PKCS#7; and another one wrapped under it (RFC
// 3394, 4.1), which the token unwraps, since it has the first.
extern const Bytes aesKey, aesText, aesCipher, wrappedKey;
// That key, encrypted to the token's RSA key by the system.
Bytes transportedKey(const Known& known);

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
