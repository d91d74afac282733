// The rules by which entry points return data. They differ in the answer to a null or a short buffer; each parameter names its
// rule. Every rule writes the value before its length.
#pragma once

#include "base/bytes.h"
#include "base/plain_values.h"
#include "csp/entry.h"

namespace quelta {

struct Output {
    BYTE* data;
    // Read once, because another thread of the caller may change the variable.
    DWORD room;
    // Never null.
    DWORD* length;

    // Here one variable holds the buffer size on the way in and the length on the way out.
    Output(BYTE* buffer, DWORD* roomAndLength) : Output(buffer, *roomAndLength, roomAndLength) {}
    Output(BYTE* buffer, DWORD bufferRoom, DWORD* written) : data(buffer), room(bufferRoom), length(written) {}

    bool isQuery() const { return !data; }
    bool holds(std::size_t size) const { return data && room >= size; }
};

// Returns the text with its terminating zero. The text must outlive the view.
ByteView bytesWithZero(const std::string& text);

// Writes only the length. Returns `answer`.
Answer tellLength(Output out, std::size_t length, Answer answer = done());

// Any buffer: TRUE. Writes the value only if it fits.
Answer putQuietly(Output out, ByteView value);
// The same for a text. The length includes the terminating zero only if the text is not written.
Answer putTextQuietly(Output out, const std::string& text);
// Null or short buffer: TRUE with ERROR_MORE_DATA.
Answer putOrMoreData(Output out, ByteView value);
// Null buffer: TRUE with ERROR_MORE_DATA. Short buffer: FALSE with ERROR_MORE_DATA.
Answer putEnumerated(Output out, ByteView value);
// Null buffer: TRUE without an error. Short buffer: FALSE with ERROR_MORE_DATA.
Answer putOrRefuse(Output out, ByteView value);
// Null or empty buffer: TRUE without an error. Short buffer: FALSE with ERROR_MORE_DATA; logs `shortText` and the length.
Answer putKeyParameter(Output out, ByteView value, const char* shortText);

} // namespace quelta
