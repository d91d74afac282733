#include "crypto/rsa_padding.h"

#include "base/der_reader.h"
#include "base/wipe.h"
#include "common/bcrypt_calls.h"

#include <algorithm>

namespace quelta::softtoken {

namespace {

Bytes mask(const KnownDigest& algorithm, ByteView seed, std::size_t size)
{
    Bytes bytes;
    for (unsigned char counter = 0; bytes.size() < size; ++counter) {
        // If the padding is not OAEP, the seed holds plain text. So the input is wiped.
        Wiped<Bytes> input;
        input->reserve(seed.size() + 4);
        append(*input, seed);
        append(*input, Bytes{0, 0, 0, counter});
        append(bytes, digestOf(algorithm, *input));
    }
    bytes.resize(size);
    return bytes;
}

Bytes exclusiveOr(ByteView left, ByteView right)
{
    Bytes result = toBytes(left);
    for (std::size_t i = 0; i < result.size(); ++i) result[i] = static_cast<unsigned char>(result[i] ^ right[i]);
    return result;
}

} // namespace

Bytes digestInfo(const KnownDigest& algorithm, ByteView digest)
{
    return der::sequence({der::sequence({der::oid(algorithm.oid), der::null()}), der::octetString(digest)});
}

Bytes signaturePadded(ByteView content, std::size_t size)
{
    if (content.size() + pkcs1Overhead > size) throw TokenError(Result::badArgument, "too much data for the key");
    return concat({Bytes{0x00, 0x01}, Bytes(size - content.size() - 3, 0xFF), Bytes{0x00}, content});
}

Bytes encryptionPadded(ByteView data, std::size_t size)
{
    if (data.size() + pkcs1Overhead > size) throw TokenError(Result::badArgument, "too much data for the key");
    Bytes filling = randomBytes(size - data.size() - 3);
    std::ranges::replace(filling, 0x00, 0x01);
    return concat({Bytes{0x00, 0x02}, filling, Bytes{0x00}, data});
}

std::optional<Bytes> pkcs1Unpadded(ByteView block)
{
    if (block.size() < pkcs1Overhead || block[0] != 0x00 || block[1] != 0x02) return std::nullopt;
    const auto end = std::ranges::find(block.subspan(2), 0x00);
    const std::size_t filling = static_cast<std::size_t>(end - block.subspan(2).begin());
    if (filling < 8 || 2 + filling == block.size()) return std::nullopt;
    return toBytes(block.subspan(2 + filling + 1));
}

Bytes oaepPadded(const KnownDigest& algorithm, ByteView data, std::size_t size)
{
    const std::size_t hashSize = algorithm.size;
    if (size < 2 * hashSize + 2 || data.size() > size - 2 * hashSize - 2)
        throw TokenError(Result::badArgument, "too much data for the key");
    Bytes content = digestOf(algorithm, {});
    content.resize(size - hashSize - 1 - data.size() - 1, 0x00);
    content.push_back(0x01);
    append(content, data);

    const Bytes seed = randomBytes(hashSize);
    const Bytes maskedContent = exclusiveOr(content, mask(algorithm, seed, content.size()));
    Bytes block{0x00};
    append(block, exclusiveOr(seed, mask(algorithm, maskedContent, hashSize)));
    append(block, maskedContent);
    return block;
}

std::optional<Bytes> oaepUnpadded(const KnownDigest& algorithm, ByteView block)
{
    const std::size_t hashSize = algorithm.size;
    if (block.size() < 2 * hashSize + 2 || block[0] != 0x00) return std::nullopt;
    const ByteView maskedSeed = block.subspan(1, hashSize);
    const ByteView maskedContent = block.subspan(1 + hashSize);
    const Bytes seed = exclusiveOr(maskedSeed, mask(algorithm, maskedContent, hashSize));
    const Wiped<Bytes> content(exclusiveOr(maskedContent, mask(algorithm, seed, maskedContent.size())));

    const ByteView all = *content;
    if (!sameBytes(all.first(hashSize), digestOf(algorithm, {}))) return std::nullopt;
    const auto rest = all.subspan(hashSize);
    const auto mark = std::ranges::find_if(rest, [](unsigned char byte) { return byte != 0x00; });
    if (mark == rest.end() || *mark != 0x01) return std::nullopt;
    return Bytes(mark + 1, rest.end());
}

} // namespace quelta::softtoken
