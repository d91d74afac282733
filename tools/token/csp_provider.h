// The token through CryptoAPI.
#pragma once

#include "tools/token/token_provider.h"

#include <map>
#include <optional>

namespace quelta::tools {

class CspProvider : public TokenProvider {
public:
    CspProvider();

    std::vector<TokenKey> keys() override;
    void usePin(const std::string& pin) override;
    std::vector<Bytes> chain(const TokenKey& key) override;
    Bytes sign(const TokenKey& key, const KnownDigest& hash, ByteView data) override;
    Bytes unwrap(const TokenKey& key, ByteView wrapped, bool oaep) override;

    // From the token.
    Bytes randomBytes(std::size_t count);
    // AT_SIGNATURE or AT_KEYEXCHANGE, whichever opens the key.
    DWORD keySpec(const TokenKey& key);

private:
    // The context of a key's container, open as long as this object lives.
    HCRYPTPROV contextOf(const TokenKey& key);
    HCRYPTPROV contextOf(const std::string& container);

    // Open from first to last: the module keeps its PIN only while it is loaded, and a context keeps it loaded.
    CryptContext first_;
    std::map<std::string, CryptContext> contexts_;
};

std::unique_ptr<TokenProvider> openCsp();

// Looks again and again whether a token is there.
class TokenWatch {
public:
    // The names of its keys; nothing without a token.
    std::optional<std::vector<std::string>> look();

private:
    // Keeps the provider loaded from one look to the next, so that it does not start the token anew each time.
    CryptContext held_;
};

// The certificates that the provider holds for a container; none if it isn't registered or has none.
std::vector<Bytes> chainFromCsp(const std::string& container);

} // namespace quelta::tools
