#pragma once

#include "base/token_error.h"
#include "common/der_reader.h"

namespace quelta::softtoken {

// Returns the value. Throws TokenError if there is none.
template <class Value>
Value required(std::optional<Value> found)
{
    if (!found) throw TokenError(Result::badData, "the data is damaged, or is not DER: convert it with openssl first");
    return *std::move(found);
}

// Wraps the DER reader of `common`. Throws TokenError on a mismatch and on anything that is not DER.
class DerReader {
public:
    explicit DerReader(ByteView bytes) : reader_(bytes) {}

    bool atEnd() const { return reader_.atEnd(); }
    bool nextIs(unsigned char tag) const { return reader_.nextIs(tag); }

    // `content` returns the element's content, `element` the whole element with its header.
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
