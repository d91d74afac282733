#pragma once

#include "tools/console/answer.h"
#include "tools/token/token_provider.h"

#include <optional>

namespace quelta::tools {

struct ListedKey {
    TokenKey key;
    bool throughCsp = false;
    bool throughKsp = false;
};

// What both interfaces show, each key once; in the token's order. Throws the Failure of CryptoAPI if neither can be opened.
std::vector<ListedKey> keysOfBoth();

// A table of the token's keys; of one interface, or of both.
Answer list(std::optional<Interface> through);

} // namespace quelta::tools
