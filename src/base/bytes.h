#pragma once

#include <algorithm>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quelta {

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

inline bool sameBytes(ByteView left, ByteView right)
{
    return std::ranges::equal(left, right);
}

inline void append(Bytes& to, ByteView more)
{
    to.insert(to.end(), more.begin(), more.end());
}

inline Bytes concat(std::initializer_list<ByteView> parts)
{
    Bytes all;
    for (const ByteView part : parts) append(all, part);
    return all;
}

inline Bytes toBytes(ByteView bytes)
{
    return {bytes.begin(), bytes.end()};
}

inline Bytes toBytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline Bytes reversed(ByteView bytes)
{
    return {bytes.rbegin(), bytes.rend()};
}

inline std::string toText(ByteView bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace quelta
