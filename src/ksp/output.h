// Helpers by which slots return data and read property values.
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

// Writes only the length. Returns `status`.
SECURITY_STATUS tellLength(KspOutput out, std::size_t length, SECURITY_STATUS status = statusDone);

// Returns a property or an exported key. Writes the length, then the value: a caller that uses one variable for both gets the
// value. A null buffer gets only the length. A short buffer gets the length and NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putProperty(KspOutput out, ByteView value);

// Returns a cryptographic result. Writes the value, then the length. A buffer that is short or null gets the length and
// NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putResult(KspOutput out, ByteView value);

// Returns the input as a view. A null pointer gives an empty view, whatever `length` is.
inline ByteView propertyInput(const BYTE* data, DWORD length)
{
    return data ? ByteView(data, length) : ByteView();
}

// The value of a property, or the status with which the property is refused.
using PropertyValue = std::expected<Bytes, SECURITY_STATUS>;

Bytes dwordValue(DWORD value);
// Returns the text as bytes, with its terminating zero.
Bytes wideValue(std::wstring_view text);

} // namespace quelta
