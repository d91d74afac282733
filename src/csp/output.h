// Where an entry point hands out data, and by which of the interface's rules. They differ in what a null or a short buffer
// answers; each parameter names its rule.
#pragma once

#include "base/bytes.h"
#include "csp/entry.h"

namespace quelta {

struct Output {
    BYTE* data;
    // The room on the way in, the length on the way out. Never null.
    DWORD* length;

    bool holds(std::size_t size) const { return data && *length >= size; }
    bool isQuery() const { return !data; }
};

// The bytes of a plain value, to hand out or to copy.
template <class Value>
ByteView bytesOf(const Value& value)
{
    return {reinterpret_cast<const unsigned char*>(&value), sizeof value};
}

// A text's characters with its terminating zero; the text must outlive the view.
ByteView bytesWithZero(const std::string& text);

// Copies what is known to fit and sets the length.
Answer put(Output out, ByteView value);

// Null or short: TRUE with ERROR_MORE_DATA.
Answer putOrMoreData(Output out, ByteView value);
// Null: TRUE, short: FALSE, ERROR_MORE_DATA both.
Answer putEnumerated(Output out, ByteView value);
// Null: TRUE and no error, short: FALSE with ERROR_MORE_DATA.
Answer putOrRefuse(Output out, ByteView value);
// Null or no room at all: TRUE and no error; short: FALSE with ERROR_MORE_DATA and an error line, `shortText` and the length.
Answer putKeyParameter(Output out, ByteView value, const char* shortText);

} // namespace quelta
