#include "tools/token/token_provider.h"

#include "tools/token/csp_provider.h"
#include "tools/token/key_storage.h"

namespace quelta::tools {

std::unique_ptr<TokenProvider> openProvider(Interface kind)
{
    if (kind == Interface::ksp) return openKeyStorage();
    return openCsp();
}

void askForPin(TokenProvider& provider, const KeyEntry& key)
{
    provider.sign(key, knownDigests[0], randomBytes(32));
}

} // namespace quelta::tools
