// Reading and writing DER (ITU-T X.690): only what keys, certificates and PKCS#12 files need.
#pragma once

#include "base/bytes.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace quelta::softtoken {

namespace tag {
constexpr unsigned char boolean = 0x01;
constexpr unsigned char integer = 0x02;
constexpr unsigned char bitString = 0x03;
constexpr unsigned char octetString = 0x04;
constexpr unsigned char null = 0x05;
constexpr unsigned char objectId = 0x06;
constexpr unsigned char utf8String = 0x0C;
constexpr unsigned char printableString = 0x13;
constexpr unsigned char ia5String = 0x16;
constexpr unsigned char utcTime = 0x17;
constexpr unsigned char generalizedTime = 0x18;
constexpr unsigned char bmpString = 0x1E;
constexpr unsigned char sequence = 0x30;
constexpr unsigned char set = 0x31;
constexpr unsigned char context(unsigned char number)
{
    return static_cast<unsigned char>(0x80 | number);
}
constexpr unsigned char contextOf(unsigned char number)
{
    return static_cast<unsigned char>(0xA0 | number);
}
} // namespace tag

// Walks over the elements of a byte range that outlives it. Throws TokenError at anything that isn't DER or isn't the tag asked
// for.
class DerReader {
public:
    explicit DerReader(ByteView bytes) : rest_(bytes) {}

    bool atEnd() const { return rest_.empty(); }
    bool nextIs(unsigned char tag) const { return !rest_.empty() && rest_[0] == tag; }

    // The content alone; the whole element, header included.
    ByteView content(unsigned char tag);
    ByteView element();
    std::optional<ByteView> contentIf(unsigned char tag);

    DerReader enter(unsigned char tag) { return DerReader(content(tag)); }
    // A magnitude without leading zeros; negative numbers are refused.
    Bytes integer();
    std::uint64_t smallInteger();
    std::string objectId();
    // Refuses unused bits.
    ByteView bitString();

private:
    struct Header {
        std::size_t headerSize;
        std::size_t contentSize;
    };
    Header header() const;

    ByteView rest_;
};

Bytes derElement(unsigned char tag, ByteView content);
Bytes derJoined(std::initializer_list<ByteView> elements);
Bytes derSequence(std::initializer_list<ByteView> elements);
// Of a magnitude, most significant byte first, whether or not zeros lead.
Bytes derInteger(ByteView magnitude);
Bytes derSmallInteger(unsigned char value);
Bytes derObjectId(std::string_view dotted);
Bytes derBitString(ByteView bytes, unsigned char unusedBits = 0);
Bytes derOctetString(ByteView bytes);
Bytes derNull();

} // namespace quelta::softtoken
