// Finds the token's records that belong together.
#pragma once

#include "token/device_records.h"
#include "token/token_key.h"

#include <string>
#include <vector>

namespace quelta {

// Returns the key's name on both interfaces: its identifier in upper-case hexadecimal.
std::string keyName(const QueltaKeyPair& pair);

// Returns the key pair with this identifier, or null.
const QueltaKeyPair* findKeyPair(const std::vector<QueltaKeyPair>& pairs, ByteView keyId);

// True if the certificate's label is not empty and is the key's, or if the key references are equal, even if both are empty.
bool belongsTo(const QueltaCertificate& record, const TokenKey& key);

} // namespace quelta
