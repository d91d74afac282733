// Which of the token's records belong together.
#pragma once

#include "token/device_records.h"
#include "token/token_key.h"

#include <string>
#include <vector>

namespace quelta {

// The key's name on both interfaces: its identifier in upper-case hexadecimal.
std::string keyName(const QueltaKeyPair& pair);

// Null if none has this identifier.
const QueltaKeyPair* findKeyPair(const std::vector<QueltaKeyPair>& pairs, ByteView keyId);

// By label if the certificate has one that is the key's, else by key reference: two references of length zero are the same.
bool belongsTo(const QueltaCertificate& record, const TokenKey& key);

} // namespace quelta
