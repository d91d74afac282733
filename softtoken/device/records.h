// From what the token stores to the records that callers read.
#pragma once

#include "store/token_state.h"

namespace quelta::softtoken {

QueltaKeyPair keyPairRecord(const StoredKeyPair& pair);
QueltaCertificate certificateRecord(const StoredCertificate& certificate);
// Without the key itself.
QueltaSymmetricKey aesKeyRecord(const StoredAesKey& key);

} // namespace quelta::softtoken
