#include "support/test_bytes.h"

#include "encoding/little_endian.h"
#include "log/utils.h"

#include <cstring>
#include <numeric>

namespace quelta::test {

Bytes counting(std::size_t count, unsigned char first)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes reversed(ByteView bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes littleEndian(std::initializer_list<std::uint32_t> words)
{
    Bytes bytes;
    for (const std::uint32_t word : words) appendU32(bytes, word);
    return bytes;
}

Bytes bytesOfText(std::string_view text)
{
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

Bytes wideBytes(std::wstring_view text)
{
    Bytes bytes((text.size() + 1) * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), text.size() * sizeof(wchar_t));
    return bytes;
}

std::string hexOf(ByteView bytes)
{
    return Utils::toHex(bytes.data(), static_cast<int>(bytes.size()));
}

Bytes keyBlob(unsigned char type, std::uint32_t algorithm, const Bytes& rest)
{
    return concat({{type, 2, 0, 0}, littleEndian({algorithm}), rest});
}

} // namespace quelta::test
