// How an entry point hands out data. The rules differ in what a null or a short buffer gets; each parameter names its rule. All
// of them write the value before its length.
#pragma once

#include "base/bytes.h"
#include "base/plain_values.h"
#include "csp/entry.h"

namespace quelta {

struct Output {
    BYTE* data;
    // Read once: another thread of the caller's may change what it was read from.
    DWORD room;
    // Never null.
    DWORD* length;

    // For parameters whose length is the room on the way in.
    Output(BYTE* buffer, DWORD* roomAndLength) : Output(buffer, *roomAndLength, roomAndLength) {}
    Output(BYTE* buffer, DWORD bufferRoom, DWORD* written) : data(buffer), room(bufferRoom), length(written) {}

    bool isQuery() const { return !data; }
    bool holds(std::size_t size) const { return data && room >= size; }
};

// A text's characters with its terminating zero; the text must outlive the view.
ByteView bytesWithZero(const std::string& text);

// Writes the length alone.
Answer tellLength(Output out, std::size_t length, Answer answer = done());

// TRUE always, written when it fits.
Answer putQuietly(Output out, ByteView value);
// The same for a text. The length counts the terminating zero if the text is not written, and leaves it out if it is.
Answer putTextQuietly(Output out, const std::string& text);
// Null or short: TRUE with ERROR_MORE_DATA.
Answer putOrMoreData(Output out, ByteView value);
// Null: TRUE, short: FALSE, ERROR_MORE_DATA both.
Answer putEnumerated(Output out, ByteView value);
// Null: TRUE and no error, short: FALSE with ERROR_MORE_DATA.
Answer putOrRefuse(Output out, ByteView value);
// Null or no room at all: TRUE and no error; short: FALSE with ERROR_MORE_DATA and an error line, `shortText` and the length.
Answer putKeyParameter(Output out, ByteView value, const char* shortText);

} // namespace quelta
