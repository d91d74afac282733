// The token through CryptoAPI.
#pragma once

#include "common/crypto_objects.h"
#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

// The names of the token's keys; nullopt without a token. `held` keeps the provider loaded from one call to the next, so that it
// does not start the token anew each time.
std::optional<std::vector<std::string>> keysIfPluggedIn(CryptContext& held);

// The certificates that the provider holds for a container; none if it isn't registered or has none.
std::vector<Bytes> chainFromCsp(const std::string& container);

} // namespace quelta::tools
