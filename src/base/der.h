// Writes DER (ITU-T X.690) in memory, with one-byte tags. Each function returns the encoded bytes.
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

// Return the context-specific tag with this number: constructed (explicit) or primitive (implicit).
constexpr unsigned char explicitTag(unsigned char number)
{
    return static_cast<unsigned char>(0xA0 | number);
}
constexpr unsigned char implicitTag(unsigned char number)
{
    return static_cast<unsigned char>(0x80 | number);
}

Bytes length(std::uint64_t value);
// Encodes only the tag and the length, for content that is written separately and may be too large for memory.
Bytes header(unsigned char tag, std::uint64_t length);
Bytes element(unsigned char tag, ByteView content);
Bytes sequence(std::initializer_list<ByteView> parts);
// Sorts the encoded elements, as DER requires for a SET OF.
Bytes setOf(std::vector<Bytes> elements, unsigned char tag = tagSet);
// Encodes an object identifier. `dotted` must be well formed: at least two numbers, without signs.
Bytes oid(std::string_view dotted);
Bytes null();
Bytes smallInteger(unsigned char value);
// Encodes an unsigned number of any length, most significant byte first. Leading zeros are dropped.
Bytes unsignedInteger(ByteView magnitude);
Bytes octetString(ByteView bytes);
Bytes bitString(ByteView bytes, unsigned char unusedBits = 0);

} // namespace quelta::der
