// The token's certificates in the user's stores, so that applications find them.
#pragma once

#include "tools/console/outcome.h"

namespace quelta::tools {

// Publishes the token's certificates, RSA keys for CryptoAPI and those on curves for key storage, and takes away what was
// published of another token or before. With `watch` it goes on until it is interrupted: published while a token is plugged in,
// taken away when it is pulled.
Outcome publish(bool watch);
// Takes away all that publish() put there, and nothing else.
Outcome unpublish();

} // namespace quelta::tools
