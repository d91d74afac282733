#include "token/key_algorithms.h"

#include "base/table.h"

namespace quelta {

namespace {

struct AlgorithmBits {
    std::uint32_t algorithm;
    std::uint32_t bits;
};
// clang-format off
constexpr AlgorithmBits algorithmBits[] = {
    {algorithmRsa1024, 1024},
    {algorithmRsa2048, 2048},
    {algorithmRsa3072, 3072},
    {algorithmRsa4096, 4096},
    {algorithmP256, 256},
    {algorithmP384, 384},
    {algorithmP521, 521},
};
// clang-format on

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

} // namespace quelta
