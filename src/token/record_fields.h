// Fields of what the token lists. One whose reported length is negative or larger than the field reads as empty.
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

// A text field ends at its first zero or with the field.
std::string_view textOf(std::span<const char> field);

} // namespace quelta
