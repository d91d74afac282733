// Encrypts a file of any size for the holder of a certificate: CMS EnvelopedData (RFC 5652), RSA PKCS#1 v1.5 around the content
// key.
#pragma once

#include "base/windows_objects.h"
#include "tools/console/files.h"

namespace quelta::tools {

// Throws a Failure unless the certificate holds an RSA key.
void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, OutputFile& output);

} // namespace quelta::tools
