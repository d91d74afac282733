// The token's certificates in the user's stores, so that applications find them.
#pragma once

#include "tools/console/answer.h"
#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

struct PublishOptions {
    // Without it RSA keys are published for CryptoAPI, those on curves for key storage.
    std::optional<Interface> provider = {};
    bool watch = false;
};

// What the token holds is published, and what was published of another token or before is taken away. With `watch` it goes on
// until it is interrupted: published while a token is plugged in, taken away when it is pulled.
Answer publish(const PublishOptions& options);
// Takes away all that publish() put there, and nothing else.
Answer unpublish();

} // namespace quelta::tools
