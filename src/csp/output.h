// Where an entry point hands out data, and by which of the interface's rules. They differ in what a null or a short buffer
// answers; each parameter names its rule.
#pragma once

#include "base/bytes.h"
#include "csp/entry.h"

namespace quelta {

struct Output {
    BYTE* data;
    // Read once: another thread of the caller's may change what it was read from.
    DWORD room;
    // Never null.
    DWORD* length;

    // Where the length holds the room on the way in.
    Output(BYTE* buffer, DWORD* roomAndLength) : Output(buffer, *roomAndLength, roomAndLength) {}
    Output(BYTE* buffer, DWORD bufferRoom, DWORD* written) : data(buffer), room(bufferRoom), length(written) {}

    bool holds(std::size_t size) const { return data && room >= size; }
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

// TRUE always, written when it fits.
Answer putQuietly(Output out, ByteView value);
// The same for a text: its length is told with the terminating zero where it is not written, and without where it is.
Answer putTextQuietly(Output out, const std::string& text);
// Null or short: TRUE with ERROR_MORE_DATA.
Answer putOrMoreData(Output out, ByteView value);
// Null: TRUE, short: FALSE, ERROR_MORE_DATA both.
Answer putEnumerated(Output out, ByteView value);
// Null: TRUE and no error, short: FALSE with ERROR_MORE_DATA.
Answer putOrRefuse(Output out, ByteView value);
// What the rule before answers for a value of this size to a buffer that does not hold it; nothing where it does. For what is
// looked up after the buffer only.
std::optional<Answer> refusalWithoutRoom(Output out, std::size_t size);
// Null or no room at all: TRUE and no error; short: FALSE with ERROR_MORE_DATA and an error line, `shortText` and the length.
Answer putKeyParameter(Output out, ByteView value, const char* shortText);

} // namespace quelta
