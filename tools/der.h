// DER of the few shapes that a CMS message is made of (ITU-T X.690), written and read.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace quelta::der {

constexpr unsigned char tagInteger = 0x02;
constexpr unsigned char tagOctetString = 0x04;
constexpr unsigned char tagNull = 0x05;
constexpr unsigned char tagOid = 0x06;
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

Bytes concat(std::initializer_list<ByteView> parts);

// Identifier and length alone, for content that follows by itself and may exceed memory.
Bytes header(unsigned char tag, std::uint64_t length);
Bytes element(unsigned char tag, ByteView content);
Bytes sequence(std::initializer_list<ByteView> parts);
// Elements in the order that DER asks of a SET OF.
Bytes setOf(std::vector<Bytes> elements, unsigned char tag = tagSet);
Bytes oid(std::string_view dotted);
Bytes null();
Bytes smallInteger(unsigned char value);
// From big-endian bytes without sign, of any length.
Bytes unsignedInteger(ByteView bigEndian);

struct Element {
    unsigned char tag;
    ByteView content;
    ByteView whole;
};

// Walks the elements of a content in memory. Nothing is read beyond it, whatever the lengths say.
class Reader {
public:
    explicit Reader(ByteView content) : rest_(content) {}

    bool atEnd() const { return rest_.empty(); }
    // Nothing if no whole element with a definite length follows.
    std::optional<Element> next();
    // The same, and nothing if it has another tag; then it can still be read with its own.
    std::optional<Element> next(unsigned char tag);

private:
    ByteView rest_;
};

// r and s as a token gives them, halves of equal length, to the SEQUENCE of CMS; and back to halves of `half` bytes each,
// nothing if it is no such SEQUENCE or a number does not fit.
Bytes ecdsaSignature(ByteView halves);
std::optional<Bytes> ecdsaHalves(ByteView signature, std::size_t half);

} // namespace quelta::der
