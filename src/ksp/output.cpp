#include "ksp/output.h"

#include "encoding/little_endian.h"

#include <algorithm>

namespace quelta {

SECURITY_STATUS tellLength(KspOutput out, std::size_t length, SECURITY_STATUS status)
{
    *out.result = static_cast<DWORD>(length);
    return status;
}

SECURITY_STATUS putProperty(KspOutput out, ByteView value)
{
    tellLength(out, value.size());
    if (out.isQuery()) return statusDone;
    if (!out.holds(value.size())) return NTE_BUFFER_TOO_SMALL;
    std::ranges::copy(value, out.data);
    return statusDone;
}

SECURITY_STATUS putResult(KspOutput out, ByteView value)
{
    if (!out.holds(value.size())) return tellLength(out, value.size(), NTE_BUFFER_TOO_SMALL);
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
