#pragma once

#include "base/bytes.h"
#include "log/utils.h"

#include <concepts>
#include <string>

namespace quelta::test {

// A length that an argument states as room for an answer.
struct Room {
    const int* length;
};

inline std::string asText(const char* text)
{
    if (!text) return "null";
    return *text ? text : "\"\"";
}
inline std::string asText(bool value)
{
    return value ? "true" : "false";
}
template <std::integral T>
std::string asText(T number)
{
    return std::to_string(number);
}
inline std::string asText(Room room)
{
    return room.length ? "room " + std::to_string(*room.length) : "no length";
}
// A null pointer, an empty span and bytes are three different things to the library. Where there is very much it is not looked
// at.
inline std::string asText(ByteView bytes)
{
    constexpr std::size_t longestSpelledOut = 0x10000;
    if (!bytes.data()) return "null";
    if (bytes.size() > longestSpelledOut) return std::to_string(bytes.size()) + " bytes";
    return bytes.empty() ? "empty" : Utils::toHex(bytes.data(), static_cast<int>(bytes.size()));
}

inline ByteView bytesOf(const unsigned char* data, int length)
{
    return {data, data && length > 0 ? static_cast<std::size_t>(length) : 0};
}

// "name(first, second)", with a library context only if there is one.
template <class... Arguments>
std::string callText(const char* name, const void* libContext, const Arguments&... arguments)
{
    std::string all;
    ((all += (all.empty() ? "" : ", ") + asText(arguments)), ...);
    if (libContext) all += ", with a context";
    return std::string(name) + "(" + all + ")";
}

} // namespace quelta::test
