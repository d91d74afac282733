// The token through key storage.
#pragma once

#include "tools/token/token_provider.h"

namespace quelta::tools {

std::unique_ptr<TokenProvider> openKeyStorage();

} // namespace quelta::tools
