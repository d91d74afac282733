#pragma once

#include "base/bytes.h"

#include <string>
#include <string_view>

namespace quelta::softtoken {

inline void append(Bytes& bytes, ByteView more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}
inline Bytes copyOf(ByteView bytes)
{
    return Bytes(bytes.begin(), bytes.end());
}
inline Bytes bytesOf(std::string_view text)
{
    return Bytes(text.begin(), text.end());
}
inline std::string textOf(ByteView bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

std::wstring toWide(const std::string& utf8);
std::string toUtf8(const std::wstring& wide);

std::string toHex(ByteView bytes);
// Takes both cases; throws TokenError for anything that isn't pairs of hexadecimal digits.
Bytes fromHex(std::string_view text);

} // namespace quelta::softtoken
