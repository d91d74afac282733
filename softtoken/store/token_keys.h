// Adding keys and certificates to a token's state, the same way for callers of the library and for the command line.
#pragma once

#include "crypto/asymmetric_key.h"
#include "store/stored_token.h"

namespace quelta::softtoken {

// An empty label becomes one of its own, so that no certificate matches by it by accident.
StoredKeyPair& addKeyPair(StoredToken& state, const PrivateKey& key, std::uint32_t usage, const std::string& label);

// For the key pair, in place of its certificate until now. Throws TokenError if it certifies another key or is too long.
StoredCertificate& addCertificate(StoredToken& state, const StoredKeyPair& pair, ByteView der);
// Of an issuer, which goes away with the key pair unless that is empty. Nothing happens if the token has it already.
void addIssuer(StoredToken& state, ByteView der, ByteView chainOf);

// Takes values of 16, 24 and 32 bytes and the encryption types of AES-128, AES-256 and triple DES.
StoredAesKey& addAesKey(StoredToken& state, ByteView value, std::uint32_t encryptionType, std::uint32_t usage,
                        const std::string& label);

} // namespace quelta::softtoken
