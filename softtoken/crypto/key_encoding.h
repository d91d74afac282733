// The published encodings of keys. The readers throw TokenError if the input is damaged or of another kind.
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

// Returns the public key as the device library lists it: the modulus of an RSA key, the SubjectPublicKeyInfo of an EC key.
Bytes shownPublicKey(const PublicKey& key);
// Returns the content of the SubjectPublicKeyInfo's bit string. Its digest is a certificate's key identifier.
Bytes publicKeyBits(const PublicKey& key);

} // namespace quelta::softtoken
