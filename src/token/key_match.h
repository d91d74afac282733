// Names, fields and usage of what the token lists. A field whose reported length is negative or larger than the field reads as
// empty.
#pragma once

#include "base/bytes.h"
#include "token/device_records.h"
#include "token/token_key.h"

#include <optional>
#include <string>
#include <string_view>

namespace quelta {

ByteView keyIdOf(const QueltaKeyPair& pair);
ByteView publicKeyOf(const QueltaKeyPair& pair);
ByteView keyReferenceOf(const QueltaKeyPair& pair);
std::string_view labelOf(const QueltaKeyPair& pair);

ByteView certificateOf(const QueltaCertificate& record);
ByteView keyReferenceOf(const QueltaCertificate& record);
std::string_view labelOf(const QueltaCertificate& record);

ByteView keyIdOf(const QueltaSymmetricKey& key);
ByteView keyReferenceOf(const QueltaSymmetricKey& key);
std::string_view labelOf(const QueltaSymmetricKey& key);

// A text field ends at its first zero or with the field.
std::string_view textOf(std::span<const char> field);

// The key's name on both interfaces: its identifier in upper-case hexadecimal.
std::string keyName(const QueltaKeyPair& pair);

bool canSign(std::uint32_t usage);
bool canExchangeKeys(std::uint32_t usage);
bool isEllipticCurve(std::uint32_t algorithm);
// 0 for an unknown code.
std::uint32_t bitsOfAlgorithm(std::uint32_t algorithm);
// The code of an RSA key of this size, if there is one.
std::optional<std::uint32_t> rsaAlgorithmOfBits(std::uint32_t bits);

// How the library is told a key's size for encryption; the default for a size that it does not know.
EncryptionType encryptionTypeOfSize(std::size_t size);

bool sameBytes(ByteView left, ByteView right);

// By label if the certificate has one that is the key's, else by key reference: two references of length zero are the same.
bool belongsTo(const QueltaCertificate& record, const TokenKey& key);

} // namespace quelta
