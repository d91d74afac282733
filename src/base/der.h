// A writer of DER (ITU-T X.690): elements of one-byte tags, in memory.
#pragma once

#include "base/bytes.h"

#include <cstdint>

namespace quelta::der {

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
Bytes smallInteger(unsigned char value);
// Of a magnitude, most significant byte first, of any length and whether or not zeros lead.
Bytes unsignedInteger(ByteView magnitude);
Bytes octetString(ByteView bytes);
Bytes bitString(ByteView bytes, unsigned char unusedBits = 0);

} // namespace quelta::der
