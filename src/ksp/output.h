// How a slot hands out data, and how it takes property values.
#pragma once

#include "base/bytes.h"
#include "base/plain_values.h"
#include "ksp/entry.h"

#include <expected>
#include <string_view>

namespace quelta {

struct KspOutput {
    BYTE* data;
    DWORD room;
    // Never null.
    DWORD* result;

    bool isQuery() const { return !data; }
    bool holds(std::size_t size) const { return data && room >= size; }
};

// Writes the length alone.
SECURITY_STATUS tellLength(KspOutput out, std::size_t length, SECURITY_STATUS status = statusDone);

// For properties and exported keys. Writes the length, then the value: a caller who uses one variable for both gets the value.
// A null buffer gets the length alone, a short one NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putProperty(KspOutput out, ByteView value);

// For results of cryptography, with a buffer that is not null. Writes the value, then the length. A short buffer gets the length
// and NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putResult(KspOutput out, ByteView value);

// A null input has a null pointer and no length.
inline ByteView propertyInput(const BYTE* data, DWORD length)
{
    return data ? ByteView(data, length) : ByteView();
}

// The value of a property, or the status with which reading it is refused.
using PropertyValue = std::expected<Bytes, SECURITY_STATUS>;

Bytes dwordValue(DWORD value);
// With its terminating zero.
Bytes wideValue(std::wstring_view text);

} // namespace quelta
