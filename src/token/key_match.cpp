#include "token/key_match.h"

#include "base/table.h"
#include "log/utils.h"

namespace quelta {

namespace {

template <std::size_t Room>
ByteView field(const unsigned char (&bytes)[Room], std::int32_t length)
{
    const bool within = length >= 0 && static_cast<std::size_t>(length) <= Room;
    return ByteView(bytes).first(within ? static_cast<std::size_t>(length) : 0);
}

struct AlgorithmBits {
    std::uint32_t algorithm;
    std::uint32_t bits;
};
constexpr AlgorithmBits algorithmBits[] = {
    {algorithmRsa1024, 1024}, {algorithmRsa2048, 2048}, {algorithmRsa3072, 3072}, {algorithmRsa4096, 4096},
    {algorithmP256, 256},     {algorithmP384, 384},     {algorithmP521, 521},
};

struct EncryptionSize {
    std::size_t size;
    EncryptionType type;
};
constexpr EncryptionSize encryptionSizes[] = {
    {1024, EncryptionType{7}},
    {2048, EncryptionType{8}},
    {3072, EncryptionType{9}},
    {4096, EncryptionType{10}},
};
constexpr EncryptionType defaultEncryptionType{8};

} // namespace

ByteView keyIdOf(const QueltaKeyPair& pair)
{
    return pair.keyId;
}

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

ByteView keyIdOf(const QueltaSymmetricKey& key)
{
    return key.keyId;
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

std::string keyName(const QueltaKeyPair& pair)
{
    return Utils::toHex(pair.keyId, static_cast<int>(keyIdSize));
}

bool canSign(std::uint32_t usage)
{
    return usage == usageSigning || usage == usageBoth;
}

bool canExchangeKeys(std::uint32_t usage)
{
    return usage == usageKeyExchange || usage == usageBoth;
}

bool isEllipticCurve(std::uint32_t algorithm)
{
    return algorithm >= algorithmP256 && algorithm <= algorithmP521;
}

std::uint32_t bitsOfAlgorithm(std::uint32_t algorithm)
{
    const auto* row = findRow(algorithmBits, &AlgorithmBits::algorithm, algorithm);
    return row ? row->bits : 0;
}

std::optional<std::uint32_t> rsaAlgorithmOfBits(std::uint32_t bits)
{
    const auto* row = findRow(algorithmBits, &AlgorithmBits::bits, bits);
    if (!row || isEllipticCurve(row->algorithm)) return std::nullopt;
    return row->algorithm;
}

EncryptionType encryptionTypeOfSize(std::size_t size)
{
    const auto* row = findRow(encryptionSizes, &EncryptionSize::size, size);
    return row ? row->type : defaultEncryptionType;
}

bool sameBytes(ByteView left, ByteView right)
{
    return std::ranges::equal(left, right);
}

bool belongsTo(const QueltaCertificate& record, const TokenKey& key)
{
    const std::string_view label = labelOf(record);
    return (!label.empty() && label == textOf(key.label.view())) || sameBytes(keyReferenceOf(record), key.objectId.view());
}

void copyIdentity(const QueltaKeyPair& pair, TokenKey& key)
{
    std::ranges::copy(pair.keyId, key.keyId.begin());
    key.keyIdLength = keyIdSize;
    key.publicKey.assign(publicKeyOf(pair));
    key.objectId.assign(keyReferenceOf(pair));
    key.label.assign(labelOf(pair));
    key.reserved = 0;
    key.keyPairFlag = pair.hardware;
}

void copyIdentity(const QueltaSymmetricKey& stored, TokenKey& key)
{
    std::ranges::copy(stored.keyId, key.keyId.begin());
    key.keyIdLength = keyIdSize;
    key.objectId.assign(keyReferenceOf(stored));
    key.label.assign(labelOf(stored));
    key.keyUsage = stored.usage;
    key.keyPairFlag = stored.flag;
}

} // namespace quelta
