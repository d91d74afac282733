#pragma once

#include "base/bytes.h"
#include "ksp/entry.h"

#include <string_view>

namespace quelta {

struct KspOutput {
    BYTE* data;
    DWORD room;
    // Never null.
    DWORD* result;
};

// The length is told first; a null buffer asks for no more, a short one is NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putProperty(KspOutput out, ByteView value);

// A null input has a null pointer and no length.
inline ByteView propertyInput(const BYTE* data, DWORD length)
{
    return data ? ByteView(data, length) : ByteView();
}

Bytes dwordValue(DWORD value);
// With its terminating zero.
Bytes wideValue(std::wstring_view text);

} // namespace quelta
