// The token through CryptoAPI or through key storage. Digests and wrapped keys go in, signatures and content keys come out.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "base/wipe.h"
#include "common/bcrypt_calls.h"

#include <memory>
#include <string>
#include <vector>

namespace quelta::tools {

struct KeyEntry {
    std::string name;
    // Null if the token has no certificate for this key.
    CertificateContext certificate;
    bool canSign = false;
    bool canDecrypt = false;
    // "RSA", or the curve as in "P-256"; empty if unknown.
    std::string algorithm = {};
    unsigned bits = 0;
    // AT_SIGNATURE or AT_KEYEXCHANGE: the one that opens the key through CryptoAPI. 0 through key storage.
    DWORD keySpec = 0;
};

class TokenProvider {
public:
    virtual ~TokenProvider() = default;

    virtual std::vector<KeyEntry> keys() = 0;
    // Gives the PIN, in the system's code page. Without it the provider's dialog asks when a private key is used.
    virtual void usePin(const std::string& pin) = 0;
    // Returns the key's certificate and its issuers (DER), as far as they are known.
    virtual std::vector<Bytes> chain(const KeyEntry& key) = 0;
    // Hashes `data` and signs the digest. RSA: PKCS#1 v1.5, big-endian; ECDSA: r and s, halves of equal length.
    virtual Bytes sign(const KeyEntry& key, const KnownDigest& hash, ByteView data) = 0;
    // Decrypts a content key. `wrapped` is big-endian, as in a message.
    virtual Wiped<Bytes> unwrap(const KeyEntry& key, ByteView wrapped, bool oaep) = 0;
};

std::unique_ptr<TokenProvider> openCsp();
std::unique_ptr<TokenProvider> openKeyStorage();

enum class Interface { csp, ksp };

inline std::unique_ptr<TokenProvider> openProvider(Interface kind)
{
    return kind == Interface::ksp ? openKeyStorage() : openCsp();
}

// Makes the provider's dialog ask for the PIN now, and not after a long file was hashed. Only the use of the key shows the
// dialog, so random bytes are signed, and the signature is dropped.
inline void askForPin(TokenProvider& provider, const KeyEntry& key)
{
    provider.sign(key, knownDigests[0], randomBytes(32));
}

} // namespace quelta::tools
