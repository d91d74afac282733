#include "support/test_bytes.h"

#include "encoding/little_endian.h"

#include <numeric>

namespace quelta::test {

Bytes counting(std::size_t count, unsigned char first)
{
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes littleEndian(std::initializer_list<std::uint32_t> words)
{
    Bytes bytes;
    for (const std::uint32_t word : words) appendU32(bytes, word);
    return bytes;
}

Bytes bytesOfText(std::string_view text)
{
    return concat({toBytes(text), Bytes{0}});
}

Bytes wideBytes(std::wstring_view text)
{
    const std::wstring terminated(text);
    const auto* begin = reinterpret_cast<const unsigned char*>(terminated.c_str());
    return {begin, begin + (text.size() + 1) * sizeof(wchar_t)};
}

Bytes keyBlob(unsigned char type, std::uint32_t algorithm, const Bytes& rest)
{
    return concat({Bytes{type, 2, 0, 0}, littleEndian({algorithm}), rest});
}

} // namespace quelta::test
