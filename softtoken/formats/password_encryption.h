// What PKCS#8 and PKCS#12 files are encrypted with: PBES2 of PKCS#5 (RFC 8018) and the triple DES scheme of PKCS#12.
#pragma once

#include "base/der_reader.h"
#include "crypto/primitives.h"

#include <optional>
#include <string>

namespace quelta::softtoken {

// Throws TokenError that names the option if there is none.
const std::string& requirePassword(const std::optional<std::string>& password);

// The reader stands in front of the AlgorithmIdentifier's content. The password is UTF-8.
Bytes decryptWithPassword(DerReader algorithm, ByteView cipher, const std::string& password);
// Of PKCS#8's EncryptedPrivateKeyInfo.
Bytes decryptPrivateKeyInfo(ByteView der, const std::string& password);

std::uint64_t readIterations(DerReader& fields);

} // namespace quelta::softtoken
