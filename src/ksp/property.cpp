#include "ksp/property.h"

#include "encoding/little_endian.h"

#include <algorithm>

namespace quelta {

SECURITY_STATUS putProperty(KspOutput out, ByteView value)
{
    *out.result = static_cast<DWORD>(value.size());
    if (!out.data) return statusDone;
    if (out.room < value.size()) return NTE_BUFFER_TOO_SMALL;
    std::ranges::copy(value, out.data);
    return statusDone;
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
