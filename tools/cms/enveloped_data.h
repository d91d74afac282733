// CMS EnvelopedData (RFC 5652) of any size. A function writes the whole content to `output`, or throws a Failure.
#pragma once

#include "tools/console/files.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

// Encrypts the content key with RSA PKCS#1 v1.5. Throws a Failure unless the certificate has an RSA key.
void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, OutputFile& output);

// `keyName` chooses the key as findKey() does. If it is empty, the key whose certificate the message names is used, else any key
// that opens the message.
void decryptWith(TokenProvider& provider, const std::string& keyName, InputFile& file, OutputFile& output);

} // namespace quelta::tools
