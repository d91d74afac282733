// The token through the key storage table that QueltaCSP.dll hands out.
#pragma once

#include "token_provider.h"

namespace quelta::tools {

std::unique_ptr<TokenProvider> openKeyStorage();

} // namespace quelta::tools
