// Reads DER (ITU-T X.690) from memory: elements with one-byte tags. Each value must have its only valid encoding.
#pragma once

#include "base/der.h"

#include <optional>

namespace quelta::der {

struct Element {
    unsigned char tag;
    ByteView content;
    ByteView whole;
};

// Walks the elements of a content, which must outlive the reader and the returned views. Nothing is read beyond the content. On a
// mismatch a function returns nullopt and consumes nothing.
class Reader {
public:
    explicit Reader(ByteView content) : rest_(content) {}

    bool atEnd() const { return rest_.empty(); }
    bool nextIs(unsigned char tag) const { return !rest_.empty() && rest_[0] == tag; }

    // Nullopt if no whole element follows, or if its length is indefinite or takes more bytes than it needs.
    std::optional<Element> next();
    std::optional<Element> next(unsigned char tag);
    // Returns a reader of the element's content.
    std::optional<Reader> enter(unsigned char tag);

    // Returns the magnitude without leading zeros; zero is empty. Nullopt for a negative number.
    std::optional<ByteView> unsignedInteger();
    std::optional<std::uint64_t> smallInteger();
    // Returns the dotted form.
    std::optional<std::string> oid();
    // Nullopt if the string does not end with a whole byte.
    std::optional<ByteView> bitString();
    std::optional<ByteView> octetString();

private:
    template <class Value, class Take>
    std::optional<Value> take(unsigned char tag, Take valueOf);

    ByteView rest_;
};

// Convert an ECDSA signature: from r and s in halves of equal length to the SEQUENCE of certificates and messages, and back to
// halves of `half` bytes each. The latter returns nullopt if `signature` is no such SEQUENCE or a number does not fit.
Bytes ecdsaSignature(ByteView halves);
std::optional<Bytes> ecdsaHalves(ByteView signature, std::size_t half);

} // namespace quelta::der
