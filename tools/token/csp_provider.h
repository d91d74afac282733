// The token through CryptoAPI.
#pragma once

#include "common/crypto_objects.h"
#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

// Returns the names of the token's keys; nullopt without a token. `held` keeps the provider loaded between calls, so that it does
// not start the token each time.
std::optional<std::vector<std::string>> keysIfPluggedIn(CryptContext& held);

// Returns the provider's certificates for a container; none if it is not registered or has none.
std::vector<Bytes> chainFromCsp(const std::string& container);

} // namespace quelta::tools
