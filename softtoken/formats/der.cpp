#include "formats/der.h"

#include "formats/byte_text.h"
#include "store/token_error.h"

#include <charconv>

namespace quelta::softtoken {

namespace {

[[noreturn]] void refuse(const char* what)
{
    throw TokenError(Result::badData, std::string("the data is damaged: ") + what);
}

void appendBase128(Bytes& bytes, std::uint64_t value)
{
    Bytes groups{static_cast<unsigned char>(value & 0x7F)};
    for (value >>= 7; value != 0; value >>= 7) groups.push_back(static_cast<unsigned char>(0x80 | (value & 0x7F)));
    bytes.insert(bytes.end(), groups.rbegin(), groups.rend());
}

} // namespace

DerReader::Header DerReader::header() const
{
    if (rest_.size() < 2) refuse("an element is missing");
    if ((rest_[0] & 0x1F) == 0x1F) refuse("a tag has several bytes");
    const unsigned char first = rest_[1];
    if (first == 0x80) refuse("it is BER with indefinite lengths; convert it with openssl first");
    std::size_t size = first;
    std::size_t used = 2;
    if (first > 0x80) {
        const std::size_t count = first & 0x7FU;
        if (count > 4 || rest_.size() < 2 + count) refuse("a length is wrong");
        size = 0;
        for (; used < 2 + count; ++used) size = size << 8 | rest_[used];
    }
    if (size > rest_.size() - used) refuse("an element is cut off");
    return {used, size};
}

ByteView DerReader::content(unsigned char tag)
{
    if (!nextIs(tag)) refuse("an element of another kind stands where one was expected");
    const Header found = header();
    const ByteView value = rest_.subspan(found.headerSize, found.contentSize);
    rest_ = rest_.subspan(found.headerSize + found.contentSize);
    return value;
}

ByteView DerReader::element()
{
    const Header found = header();
    const ByteView whole = rest_.first(found.headerSize + found.contentSize);
    rest_ = rest_.subspan(whole.size());
    return whole;
}

std::optional<ByteView> DerReader::contentIf(unsigned char tag)
{
    if (!nextIs(tag)) return std::nullopt;
    return content(tag);
}

Bytes DerReader::integer()
{
    ByteView value = content(tag::integer);
    if (value.empty() || (value[0] & 0x80) != 0) refuse("a number is empty or negative");
    while (value.size() > 1 && value[0] == 0) value = value.subspan(1);
    return copyOf(value);
}

std::uint64_t DerReader::smallInteger()
{
    const Bytes value = integer();
    if (value.size() > 7) refuse("a number is too large");
    std::uint64_t number = 0;
    for (const unsigned char byte : value) number = number << 8 | byte;
    return number;
}

std::string DerReader::objectId()
{
    const ByteView value = content(tag::objectId);
    if (value.empty() || value.size() > 32) refuse("an object identifier is wrong");
    std::string text;
    std::uint64_t arc = 0;
    for (const unsigned char byte : value) {
        arc = arc << 7 | (byte & 0x7FU);
        if ((byte & 0x80) != 0) continue;
        if (text.empty()) {
            const std::uint64_t top = std::min<std::uint64_t>(arc / 40, 2);
            text = std::to_string(top);
            arc -= top * 40;
        }
        text += '.';
        text += std::to_string(arc);
        arc = 0;
    }
    return text;
}

ByteView DerReader::bitString()
{
    const ByteView value = content(tag::bitString);
    if (value.empty() || value[0] != 0) refuse("a bit string does not end with a whole byte");
    return value.subspan(1);
}

Bytes derElement(unsigned char tag, ByteView content)
{
    Bytes bytes{tag};
    if (content.size() < 0x80) {
        bytes.push_back(static_cast<unsigned char>(content.size()));
    } else {
        Bytes length;
        for (std::size_t rest = content.size(); rest != 0; rest >>= 8) length.push_back(static_cast<unsigned char>(rest & 0xFF));
        bytes.push_back(static_cast<unsigned char>(0x80 | length.size()));
        bytes.insert(bytes.end(), length.rbegin(), length.rend());
    }
    append(bytes, content);
    return bytes;
}

Bytes derJoined(std::initializer_list<ByteView> elements)
{
    Bytes bytes;
    for (const ByteView element : elements) append(bytes, element);
    return bytes;
}

Bytes derSequence(std::initializer_list<ByteView> elements)
{
    return derElement(tag::sequence, derJoined(elements));
}

Bytes derInteger(ByteView magnitude)
{
    while (magnitude.size() > 1 && magnitude[0] == 0) magnitude = magnitude.subspan(1);
    Bytes content;
    if (magnitude.empty() || (magnitude[0] & 0x80) != 0) content.push_back(0);
    append(content, magnitude);
    return derElement(tag::integer, content);
}

Bytes derSmallInteger(unsigned char value)
{
    return derInteger(ByteView(&value, 1));
}

Bytes derObjectId(std::string_view dotted)
{
    std::vector<std::uint64_t> arcs;
    while (!dotted.empty()) {
        std::uint64_t arc = 0;
        const auto end = std::from_chars(dotted.data(), dotted.data() + dotted.size(), arc).ptr;
        dotted.remove_prefix(static_cast<std::size_t>(end - dotted.data()));
        if (!dotted.empty()) dotted.remove_prefix(1);
        arcs.push_back(arc);
    }
    Bytes content;
    appendBase128(content, arcs.at(0) * 40 + arcs.at(1));
    for (std::size_t i = 2; i < arcs.size(); ++i) appendBase128(content, arcs[i]);
    return derElement(tag::objectId, content);
}

Bytes derBitString(ByteView bytes, unsigned char unusedBits)
{
    return derElement(tag::bitString, derJoined({ByteView(&unusedBits, 1), bytes}));
}

Bytes derOctetString(ByteView bytes)
{
    return derElement(tag::octetString, bytes);
}

Bytes derNull()
{
    return derElement(tag::null, {});
}

} // namespace quelta::softtoken
