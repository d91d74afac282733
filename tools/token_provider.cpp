#include "token_provider.h"

#include "bcrypt_call.h"
#include "csp_provider.h"
#include "ksp_provider.h"

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
