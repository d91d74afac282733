// DER (ITU-T X.690), written and read: the one encoding that each value has, elements of one-byte tags, in memory.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <optional>

namespace quelta::der {

constexpr unsigned char tagBoolean = 0x01;
constexpr unsigned char tagInteger = 0x02;
constexpr unsigned char tagBitString = 0x03;
constexpr unsigned char tagOctetString = 0x04;
constexpr unsigned char tagNull = 0x05;
constexpr unsigned char tagOid = 0x06;
constexpr unsigned char tagUtf8String = 0x0C;
constexpr unsigned char tagPrintableString = 0x13;
constexpr unsigned char tagIa5String = 0x16;
constexpr unsigned char tagUtcTime = 0x17;
constexpr unsigned char tagGeneralizedTime = 0x18;
constexpr unsigned char tagBmpString = 0x1E;
constexpr unsigned char tagSequence = 0x30;
constexpr unsigned char tagSet = 0x31;

// Context-specific tags, constructed and primitive.
constexpr unsigned char explicitTag(unsigned char number)
{
    return static_cast<unsigned char>(0xA0 | number);
}
constexpr unsigned char implicitTag(unsigned char number)
{
    return static_cast<unsigned char>(0x80 | number);
}

Bytes length(std::uint64_t value);
// Identifier and length alone, for content that follows by itself and may exceed memory.
Bytes header(unsigned char tag, std::uint64_t length);
Bytes element(unsigned char tag, ByteView content);
Bytes sequence(std::initializer_list<ByteView> parts);
// Elements in the order that DER asks of a SET OF.
Bytes setOf(std::vector<Bytes> elements, unsigned char tag = tagSet);
// Of a well-formed dotted text: at least two numbers, without signs.
Bytes oid(std::string_view dotted);
Bytes null();
Bytes boolean(bool value);
Bytes smallInteger(unsigned char value);
// Of a magnitude, most significant byte first, of any length and whether or not zeros lead.
Bytes unsignedInteger(ByteView magnitude);
Bytes octetString(ByteView bytes);
Bytes bitString(ByteView bytes, unsigned char unusedBits = 0);

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

    // Nothing if no whole element follows, or its length is indefinite or takes more bytes than it needs.
    std::optional<Element> next();
    std::optional<Element> next(unsigned char tag);
    // The content of a constructed element.
    std::optional<Reader> enter(unsigned char tag);

    // The magnitude without leading zeros, so that zero is empty; nothing for a negative number.
    std::optional<ByteView> unsignedInteger();
    std::optional<std::uint64_t> smallInteger();
    // Dotted.
    std::optional<std::string> oid();
    // Nothing unless it ends with a whole byte.
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
