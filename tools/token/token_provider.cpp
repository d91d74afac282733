#include "tools/token/token_provider.h"

#include "tools/cms/bcrypt_call.h"
#include "tools/token/csp_provider.h"
#include "tools/token/ksp_provider.h"

namespace quelta::tools {

std::unique_ptr<TokenProvider> openProvider(Interface kind)
{
    if (kind == Interface::ksp) return openKeyStorage();
    return openCsp();
}

void askForPin(TokenProvider& provider, const TokenKey& key)
{
    provider.sign(key, knownDigests[0], randomBytes(32));
}

} // namespace quelta::tools
