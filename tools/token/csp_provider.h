// The token through CryptoAPI.
#pragma once

#include "common/crypto_objects.h"
#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

std::unique_ptr<TokenProvider> openCsp();

// Looks again and again whether a token is there.
class TokenWatch {
public:
    // The names of its keys; nullopt without a token.
    std::optional<std::vector<std::string>> look();

private:
    // Keeps the provider loaded from one look to the next, so that it does not start the token anew each time.
    CryptContext held_;
};

// The certificates that the provider holds for a container; none if it isn't registered or has none.
std::vector<Bytes> chainFromCsp(const std::string& container);

} // namespace quelta::tools
