#include "token/record_fields.h"

#include <algorithm>

namespace quelta {

namespace {

template <std::size_t Room>
ByteView field(const unsigned char (&bytes)[Room], std::int32_t length)
{
    const bool within = length >= 0 && static_cast<std::size_t>(length) <= Room;
    return ByteView(bytes).first(within ? static_cast<std::size_t>(length) : 0);
}

} // namespace

ByteView publicKeyOf(const QueltaKeyPair& pair)
{
    return field(pair.publicKey, pair.publicKeyLength);
}

ByteView keyReferenceOf(const QueltaKeyPair& pair)
{
    return field(pair.keyReference, pair.keyReferenceLength);
}

std::string_view labelOf(const QueltaKeyPair& pair)
{
    return textOf(pair.label);
}

ByteView certificateOf(const QueltaCertificate& record)
{
    return field(record.certificate, record.certificateLength);
}

ByteView keyReferenceOf(const QueltaCertificate& record)
{
    return field(record.keyReference, record.keyReferenceLength);
}

std::string_view labelOf(const QueltaCertificate& record)
{
    return textOf(record.label);
}

ByteView keyReferenceOf(const QueltaSymmetricKey& key)
{
    return field(key.keyReference, key.keyReferenceLength);
}

std::string_view labelOf(const QueltaSymmetricKey& key)
{
    return textOf(key.label);
}

std::string_view textOf(std::span<const char> field)
{
    return {field.data(), static_cast<std::size_t>(std::ranges::find(field, '\0') - field.begin())};
}

} // namespace quelta
