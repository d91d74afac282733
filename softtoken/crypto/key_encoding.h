// The published forms of keys. What is read throws TokenError if it is damaged or of another kind.
#pragma once

#include "crypto/asymmetric_key.h"

namespace quelta::softtoken {

// X.509's SubjectPublicKeyInfo and PKCS#8's PrivateKeyInfo.
Bytes encodePublicKey(const PublicKey& key);
PublicKey decodePublicKey(ByteView der);
Bytes encodePrivateKey(const PrivateKey& key);
PrivateKey decodePrivateKey(ByteView der);
// The older forms: PKCS#1's RSAPrivateKey and SEC 1's ECPrivateKey.
PrivateKey decodeRsaPrivateKey(ByteView der);
PrivateKey decodeEcPrivateKey(ByteView der);

// As the device library shows public keys: the modulus of an RSA key, the SubjectPublicKeyInfo of one on a curve.
Bytes shownPublicKey(const PublicKey& key);
// What a certificate signs as its key: the content of the SubjectPublicKeyInfo's bit string.
Bytes publicKeyBits(const PublicKey& key);

} // namespace quelta::softtoken
