// Adds keys and certificates to a token's state, for callers of the library and for the command line.
#pragma once

#include "crypto/asymmetric_key.h"
#include "store/stored_token.h"

namespace quelta::softtoken {

// An empty label is replaced by a unique one, so that no certificate matches it by accident.
StoredKeyPair& addKeyPair(StoredToken& state, const PrivateKey& key, std::uint32_t usage, const std::string& label);

// Replaces the key pair's certificate. Throws TokenError if the certificate is for another key or is too long.
StoredCertificate& addCertificate(StoredToken& state, const StoredKeyPair& pair, ByteView der);
// Adds an issuer's certificate, which is deleted with the key pair `chainOf` unless that is empty. Does nothing if the token has
// the certificate.
void addIssuer(StoredToken& state, ByteView der, ByteView chainOf);

// Takes values of 16, 24 and 32 bytes and the encryption types of AES-128, AES-256 and triple DES.
StoredAesKey& addAesKey(StoredToken& state, ByteView value, std::uint32_t encryptionType, std::uint32_t usage,
                        const std::string& label);

} // namespace quelta::softtoken
