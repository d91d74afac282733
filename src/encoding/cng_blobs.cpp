#include "encoding/cng_blobs.h"

#include "encoding/little_endian.h"

namespace quelta {

namespace {

constexpr std::uint32_t keyDataMagic = 0x4D42444B; // "KDBM"
constexpr std::size_t rsaHeaderSize = 24;
constexpr std::size_t bitLengthOffset = 4;
constexpr std::size_t exponentSizeOffset = 8;
constexpr std::size_t modulusSizeOffset = 12;
constexpr std::size_t keyDataHeaderSize = 12;
constexpr std::size_t keyDataSizeOffset = 8;

} // namespace

std::optional<CngPublicKey> parseCngPublicBlob(ByteView blob)
{
    if (blob.size() < rsaHeaderSize || readU32(blob, 0) != rsaPublicMagic) return std::nullopt;
    const std::uint64_t exponentSize = readU32(blob, exponentSizeOffset);
    const std::uint64_t modulusSize = readU32(blob, modulusSizeOffset);
    if (blob.size() < rsaHeaderSize + exponentSize + modulusSize) return std::nullopt;
    return CngPublicKey{readU32(blob, bitLengthOffset), blob.subspan(static_cast<std::size_t>(rsaHeaderSize + exponentSize),
                                                                     static_cast<std::size_t>(modulusSize))};
}

Bytes writeCngPublicBlob(ByteView publicKey)
{
    constexpr unsigned char exponent[] = {0x01, 0x00, 0x01};
    Bytes blob;
    appendU32(blob, rsaPublicMagic);
    appendU32(blob, static_cast<std::uint32_t>(publicKey.size() * 8));
    appendU32(blob, sizeof exponent);
    appendU32(blob, static_cast<std::uint32_t>(publicKey.size()));
    appendU32(blob, 0);
    appendU32(blob, 0);
    append(blob, exponent);
    append(blob, publicKey);
    return blob;
}

std::optional<ByteView> parseKeyDataBlob(ByteView blob)
{
    if (blob.size() < keyDataHeaderSize || readU32(blob, 0) != keyDataMagic) return std::nullopt;
    const std::size_t size = readU32(blob, keyDataSizeOffset);
    if (blob.size() - keyDataHeaderSize < size) return std::nullopt;
    return blob.subspan(keyDataHeaderSize, size);
}

} // namespace quelta
