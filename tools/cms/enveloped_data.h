// CMS EnvelopedData (RFC 5652) of any size. On return the whole content is in `output`, or a Failure says why not.
#pragma once

#include "tools/console/files.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

// RSA PKCS#1 v1.5 around the content key. Throws a Failure unless the certificate holds an RSA key.
void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, OutputFile& output);

// `keyName` chooses the key as findKey() does; empty takes the one that the message was encrypted for, and any that opens it if
// none has the certificate that the message names.
void decryptWith(TokenProvider& provider, const std::string& keyName, InputFile& file, OutputFile& output);

} // namespace quelta::tools
