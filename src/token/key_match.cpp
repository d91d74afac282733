#include "token/key_match.h"

#include "base/hex.h"
#include "token/record_fields.h"

namespace quelta {

std::string keyName(const QueltaKeyPair& pair)
{
    return toHex(pair.keyId);
}

const QueltaKeyPair* findKeyPair(const std::vector<QueltaKeyPair>& pairs, ByteView keyId)
{
    const auto found = std::ranges::find_if(pairs, [&](const auto& pair) { return sameBytes(pair.keyId, keyId); });
    return found == pairs.end() ? nullptr : &*found;
}

bool belongsTo(const QueltaCertificate& record, const TokenKey& key)
{
    const std::string_view label = labelOf(record);
    return (!label.empty() && label == textOf(key.label.view())) || sameBytes(keyReferenceOf(record), key.objectId.view());
}

} // namespace quelta
