#include "token/token_key.h"

#include "token/record_fields.h"

namespace quelta {

void copyIdentity(const QueltaKeyPair& pair, TokenKey& key)
{
    std::ranges::copy(pair.keyId, key.keyId.begin());
    key.publicKey.assign(publicKeyOf(pair));
    key.objectId.assign(keyReferenceOf(pair));
    key.label.assign(labelOf(pair));
    key.keyPairFlag = pair.hardware;
}

void copyIdentity(const QueltaSymmetricKey& stored, TokenKey& key)
{
    std::ranges::copy(stored.keyId, key.keyId.begin());
    key.objectId.assign(keyReferenceOf(stored));
    key.label.assign(labelOf(stored));
    key.keyUsage = stored.usage;
    key.keyPairFlag = stored.flag;
}

} // namespace quelta
