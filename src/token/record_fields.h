// Reads fields of the records that the token lists. A field reads as empty if its length is negative or exceeds its size.
#pragma once

#include "base/bytes.h"
#include "token/device_records.h"

namespace quelta {

ByteView publicKeyOf(const QueltaKeyPair& pair);
ByteView keyReferenceOf(const QueltaKeyPair& pair);
std::string_view labelOf(const QueltaKeyPair& pair);

ByteView certificateOf(const QueltaCertificate& record);
ByteView keyReferenceOf(const QueltaCertificate& record);
std::string_view labelOf(const QueltaCertificate& record);

ByteView keyReferenceOf(const QueltaSymmetricKey& key);
std::string_view labelOf(const QueltaSymmetricKey& key);

// Returns a text field up to its first zero, or whole if it has no zero.
std::string_view textOf(std::span<const char> field);

} // namespace quelta
