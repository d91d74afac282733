// A way to the token: through CryptoAPI or through key storage. Private keys stay where they are; only digests and wrapped keys
// go in, signatures and content keys come out.
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
    // Empty if the token has none for this key.
    CertificateContext certificate;
    bool canSign = false;
    bool canDecrypt = false;
    // "RSA", or the curve as in "P-256"; empty if the provider does not tell.
    std::string algorithm = {};
    unsigned bits = 0;
    // AT_SIGNATURE or AT_KEYEXCHANGE, whichever opens the key through CryptoAPI; 0 through key storage.
    DWORD keySpec = 0;
};

class TokenProvider {
public:
    virtual ~TokenProvider() = default;

    virtual std::vector<KeyEntry> keys() = 0;
    // In the system's code page. Without it the provider's own dialog asks when a private key is used.
    virtual void usePin(const std::string& pin) = 0;
    // The key's certificate and its issuers, DER, as far as they are known.
    virtual std::vector<Bytes> chain(const KeyEntry& key) = 0;
    // Hashes `data` and signs the digest. RSA: PKCS#1 v1.5, big-endian; ECDSA: r and s, halves of equal length.
    virtual Bytes sign(const KeyEntry& key, const KnownDigest& hash, ByteView data) = 0;
    // Opens a content key that was encrypted for the key, given big-endian as a message carries it.
    virtual Wiped<Bytes> unwrap(const KeyEntry& key, ByteView wrapped, bool oaep) = 0;
};

std::unique_ptr<TokenProvider> openCsp();
std::unique_ptr<TokenProvider> openKeyStorage();

enum class Interface { csp, ksp };

inline std::unique_ptr<TokenProvider> openProvider(Interface kind)
{
    return kind == Interface::ksp ? openKeyStorage() : openCsp();
}

// Has the provider's dialog ask for the PIN now, if it is needed, and not after hours of hashing. Nothing else lets it ask than
// the use of the key: random bytes are signed, and the signature is forgotten.
inline void askForPin(TokenProvider& provider, const KeyEntry& key)
{
    provider.sign(key, knownDigests[0], randomBytes(32));
}

} // namespace quelta::tools
