#pragma once

#include "base/token_error.h"
#include "common/der_reader.h"

namespace quelta::softtoken {

// What was asked for, or TokenError.
template <class Value>
Value required(std::optional<Value> found)
{
    if (!found) throw TokenError(Result::badData, "the data is damaged, or is not DER: convert it with openssl first");
    return *std::move(found);
}

// base/der.h's reader for whoever can only give up: throws TokenError at anything that isn't DER or isn't what is asked for.
class DerReader {
public:
    explicit DerReader(ByteView bytes) : reader_(bytes) {}

    bool atEnd() const { return reader_.atEnd(); }
    bool nextIs(unsigned char tag) const { return reader_.nextIs(tag); }

    // The content alone; the whole element, header included.
    ByteView content(unsigned char tag) { return required(reader_.next(tag)).content; }
    ByteView element() { return required(reader_.next()).whole; }
    DerReader enter(unsigned char tag) { return DerReader(content(tag)); }

    Bytes integer() { return toBytes(required(reader_.unsignedInteger())); }
    std::uint64_t smallInteger() { return required(reader_.smallInteger()); }
    std::string objectId() { return required(reader_.oid()); }
    ByteView bitString() { return required(reader_.bitString()); }

private:
    der::Reader reader_;
};

} // namespace quelta::softtoken
