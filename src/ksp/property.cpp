#include "ksp/property.h"

#include "encoding/little_endian.h"

#include <algorithm>

namespace quelta {

std::optional<SECURITY_STATUS> answerWithoutRoom(KspOutput out, std::size_t size)
{
    if (!out.data) return tellLength(out, size);
    if (out.room < size) return tellLength(out, size, NTE_BUFFER_TOO_SMALL);
    return std::nullopt;
}

SECURITY_STATUS putProperty(KspOutput out, ByteView value)
{
    if (const auto answer = answerWithoutRoom(out, value.size())) return *answer;
    tellLength(out, value.size());
    std::ranges::copy(value, out.data);
    return statusDone;
}

SECURITY_STATUS putResult(KspOutput out, ByteView value)
{
    if (const auto answer = answerWithoutRoom(out, value.size())) return *answer;
    std::ranges::copy(value, out.data);
    return tellLength(out, value.size());
}

Bytes dwordValue(DWORD value)
{
    Bytes bytes;
    appendU32(bytes, value);
    return bytes;
}

Bytes wideValue(std::wstring_view text)
{
    Bytes bytes;
    for (const wchar_t unit : text) {
        bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
        bytes.push_back(static_cast<unsigned char>(unit >> 8 & 0xFF));
    }
    bytes.insert(bytes.end(), {0, 0});
    return bytes;
}

} // namespace quelta
