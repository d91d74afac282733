#include "common/der_reader.h"

#include <algorithm>

namespace quelta::der {

namespace {

constexpr unsigned char longForm = 0x80;
constexpr unsigned char moreFollows = 0x80;
constexpr unsigned char severalBytesOfTag = 0x1F;

struct Header {
    std::size_t size;
    std::size_t contentSize;
};

// Reads the long form of a length. The first byte of `bytes` is the number of length bytes.
std::optional<Header> longHeader(ByteView bytes)
{
    const std::size_t count = bytes[0] & 0x7FU;
    if (count == 0 || count > sizeof(std::size_t) || bytes.size() - 1 < count) return std::nullopt;
    std::size_t contentSize = 0;
    for (const unsigned char byte : bytes.subspan(1, count)) contentSize = contentSize << 8 | byte;
    if (contentSize < longForm || bytes[1] == 0) return std::nullopt;
    return Header{2 + count, contentSize};
}

std::optional<Header> headerOf(ByteView bytes)
{
    if (bytes.size() < 2 || (bytes[0] & severalBytesOfTag) == severalBytesOfTag) return std::nullopt;
    const auto found = bytes[1] < longForm ? Header{2, bytes[1]} : longHeader(bytes.subspan(1));
    if (!found || found->contentSize > bytes.size() - found->size) return std::nullopt;
    return found;
}

std::optional<ByteView> magnitudeOf(ByteView content)
{
    if (content.empty() || (content[0] & 0x80)) return std::nullopt;
    const bool needlessZero = content.size() > 1 && content[0] == 0 && !(content[1] & 0x80);
    if (needlessZero) return std::nullopt;
    return content[0] == 0 ? content.subspan(1) : content;
}

std::optional<std::uint64_t> smallNumberOf(ByteView content)
{
    const auto magnitude = magnitudeOf(content);
    if (!magnitude || magnitude->size() > sizeof(std::uint64_t)) return std::nullopt;
    std::uint64_t number = 0;
    for (const unsigned char byte : *magnitude) number = number << 8 | byte;
    return number;
}

// The first number holds two arcs: 40 times the first one, which is at most 2, plus the second.
std::string firstArcs(std::uint64_t number)
{
    const std::uint64_t first = std::min<std::uint64_t>(number / 40, 2);
    return std::to_string(first) + '.' + std::to_string(number - first * 40);
}

std::optional<std::string> dottedOf(ByteView content)
{
    std::string text;
    std::uint64_t arc = 0;
    bool within = false;
    for (const unsigned char byte : content) {
        const bool needlessZero = !within && byte == moreFollows;
        if (needlessZero || arc >> (64 - 7)) return std::nullopt;
        arc = arc << 7 | (byte & 0x7FU);
        within = byte & moreFollows;
        if (within) continue;
        text += text.empty() ? firstArcs(arc) : '.' + std::to_string(arc);
        arc = 0;
    }
    if (within || text.empty()) return std::nullopt;
    return text;
}

std::optional<ByteView> wholeBytesOf(ByteView content)
{
    if (content.empty() || content[0] != 0) return std::nullopt;
    return content.subspan(1);
}

} // namespace

std::optional<Element> Reader::next()
{
    const auto found = headerOf(rest_);
    if (!found) return std::nullopt;
    const ByteView whole = rest_.first(found->size + found->contentSize);
    rest_ = rest_.subspan(whole.size());
    return Element{whole[0], whole.subspan(found->size), whole};
}

std::optional<Element> Reader::next(unsigned char tag)
{
    return nextIs(tag) ? next() : std::nullopt;
}

template <class Value, class Take>
std::optional<Value> Reader::take(unsigned char tag, Take valueOf)
{
    Reader ahead = *this;
    const auto found = ahead.next(tag);
    std::optional<Value> value;
    if (found) value = valueOf(found->content);
    if (value) *this = ahead;
    return value;
}

std::optional<Reader> Reader::enter(unsigned char tag)
{
    return take<Reader>(tag, [](ByteView content) { return Reader(content); });
}

std::optional<ByteView> Reader::unsignedInteger()
{
    return take<ByteView>(tagInteger, magnitudeOf);
}

std::optional<std::uint64_t> Reader::smallInteger()
{
    return take<std::uint64_t>(tagInteger, smallNumberOf);
}

std::optional<std::string> Reader::oid()
{
    return take<std::string>(tagOid, dottedOf);
}

std::optional<ByteView> Reader::bitString()
{
    return take<ByteView>(tagBitString, wholeBytesOf);
}

std::optional<ByteView> Reader::octetString()
{
    return take<ByteView>(tagOctetString, [](ByteView content) { return content; });
}

Bytes ecdsaSignature(ByteView halves)
{
    const std::size_t half = halves.size() / 2;
    return sequence({unsignedInteger(halves.first(half)), unsignedInteger(halves.subspan(half))});
}

std::optional<Bytes> ecdsaHalves(ByteView signature, std::size_t half)
{
    Reader outer(signature);
    auto numbers = outer.enter(tagSequence);
    if (!numbers || !outer.atEnd()) return std::nullopt;
    Bytes halves;
    for (int i = 0; i < 2; ++i) {
        const auto number = numbers->unsignedInteger();
        if (!number || number->size() > half) return std::nullopt;
        halves.resize(halves.size() + half - number->size());
        append(halves, *number);
    }
    if (!numbers->atEnd()) return std::nullopt;
    return halves;
}

} // namespace quelta::der
