// Opens CMS EnvelopedData of any size with a key on the token.
#pragma once

#include "tools/console/files.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

// `keyName` chooses the key as findKey() does; empty takes the one that the message was encrypted for, and any that opens it if
// none has the certificate that the message names. The whole content is in `output` on return, or a Failure says why not.
void decryptWith(TokenProvider& provider, const std::string& keyName, InputFile& file, OutputFile& output);

} // namespace quelta::tools
