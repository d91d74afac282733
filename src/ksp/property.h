#pragma once

#include "base/bytes.h"
#include "ksp/entry.h"

#include <optional>
#include <string_view>

namespace quelta {

struct KspOutput {
    BYTE* data;
    DWORD room;
    // Never null.
    DWORD* result;
};

// Tells the length of what is not to be written.
inline SECURITY_STATUS tellLength(KspOutput out, std::size_t length, SECURITY_STATUS status = statusDone)
{
    *out.result = static_cast<DWORD>(length);
    return status;
}

// What a buffer that does not hold this many bytes is answered, with the length told: a null one asked for that, a short one is
// NTE_BUFFER_TOO_SMALL. Nothing for one that does.
std::optional<SECURITY_STATUS> answerWithoutRoom(KspOutput out, std::size_t size);

// For properties and exported keys. Writes the length, then the value: a caller who uses one variable for both gets the value.
// A null buffer gets the length alone, a short one NTE_BUFFER_TOO_SMALL.
SECURITY_STATUS putProperty(KspOutput out, ByteView value);

// The same for results of cryptography, which are written before their length.
SECURITY_STATUS putResult(KspOutput out, ByteView value);

// A null input has a null pointer and no length.
inline ByteView propertyInput(const BYTE* data, DWORD length)
{
    return data ? ByteView(data, length) : ByteView();
}

Bytes dwordValue(DWORD value);
// With its terminating zero.
Bytes wideValue(std::wstring_view text);

} // namespace quelta
