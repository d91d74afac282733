// A reader of DER (ITU-T X.690), of which each value has one encoding: elements of one-byte tags, in memory.
#pragma once

#include "base/der.h"

#include <optional>

namespace quelta::der {

struct Element {
    unsigned char tag;
    ByteView content;
    ByteView whole;
};

// Walks the elements of a content in memory, which must outlive it and what it gives out. Nothing is read beyond it, whatever the
// lengths say. A function that finds not what it asks for gives nothing, and the element can still be read as what it is.
class Reader {
public:
    explicit Reader(ByteView content) : rest_(content) {}

    bool atEnd() const { return rest_.empty(); }
    bool nextIs(unsigned char tag) const { return !rest_.empty() && rest_[0] == tag; }

    // Nullopt if no whole element follows, or if its length is indefinite or takes more bytes than it needs.
    std::optional<Element> next();
    std::optional<Element> next(unsigned char tag);
    // The content of a constructed element.
    std::optional<Reader> enter(unsigned char tag);

    // The magnitude without leading zeros, so that zero is empty; nothing for a negative number.
    std::optional<ByteView> unsignedInteger();
    std::optional<std::uint64_t> smallInteger();
    // Dotted.
    std::optional<std::string> oid();
    // Nullopt if the string does not end with a whole byte.
    std::optional<ByteView> bitString();
    std::optional<ByteView> octetString();

private:
    template <class Value, class Take>
    std::optional<Value> take(unsigned char tag, Take valueOf);

    ByteView rest_;
};

// r and s in halves of equal length, to the SEQUENCE that certificates and messages have; and back to halves of `half` bytes
// each, nothing if it is no such SEQUENCE or a number does not fit.
Bytes ecdsaSignature(ByteView halves);
std::optional<Bytes> ecdsaHalves(ByteView signature, std::size_t half);

} // namespace quelta::der
