#include "der.h"

#include "encoding/rsa_public_key.h"

#include <algorithm>
#include <charconv>

namespace quelta::der {

namespace {

void append(Bytes& to, ByteView bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// Base 128, most significant group first, every byte but the last with its top bit set.
void appendArc(Bytes& to, std::uint64_t arc)
{
    Bytes groups{static_cast<unsigned char>(arc & 0x7F)};
    while (arc >>= 7) groups.push_back(static_cast<unsigned char>(0x80 | (arc & 0x7F)));
    to.insert(to.end(), groups.rbegin(), groups.rend());
}

ByteView withoutLeadingZeros(ByteView number)
{
    while (!number.empty() && number.front() == 0) number = number.subspan(1);
    return number;
}

} // namespace

Bytes concat(std::initializer_list<ByteView> parts)
{
    Bytes all;
    for (const ByteView part : parts) append(all, part);
    return all;
}

Bytes header(unsigned char tag, std::uint64_t length)
{
    return concat({ByteView(&tag, 1), encodeDerLength(length)});
}

Bytes element(unsigned char tag, ByteView content)
{
    return encodeDerTlv(tag, content);
}

Bytes sequence(std::initializer_list<ByteView> parts)
{
    return element(tagSequence, concat(parts));
}

Bytes setOf(std::vector<Bytes> elements, unsigned char tag)
{
    std::ranges::sort(elements, [](ByteView left, ByteView right) { return std::ranges::lexicographical_compare(left, right); });
    Bytes content;
    for (const Bytes& item : elements) append(content, item);
    return element(tag, content);
}

Bytes oid(std::string_view dotted)
{
    std::vector<std::uint64_t> arcs;
    for (const char* at = dotted.data(); at < dotted.data() + dotted.size(); ++at) {
        std::uint64_t arc = 0;
        at = std::from_chars(at, dotted.data() + dotted.size(), arc).ptr;
        arcs.push_back(arc);
    }
    Bytes content;
    appendArc(content, arcs.at(0) * 40 + arcs.at(1));
    for (std::size_t i = 2; i < arcs.size(); ++i) appendArc(content, arcs[i]);
    return element(tagOid, content);
}

Bytes null()
{
    return {tagNull, 0};
}

Bytes smallInteger(unsigned char value)
{
    return unsignedInteger({&value, 1});
}

Bytes unsignedInteger(ByteView bigEndian)
{
    const ByteView digits = withoutLeadingZeros(bigEndian);
    constexpr unsigned char zero[] = {0};
    const bool needsZero = digits.empty() || (digits.front() & 0x80);
    return element(tagInteger, concat({needsZero ? ByteView(zero) : ByteView(), digits}));
}

std::optional<Element> Reader::next()
{
    // No tag here has a number above 30, so an identifier is one byte.
    if (rest_.size() < 2) return std::nullopt;
    std::size_t headerSize = 2;
    std::uint64_t length = rest_[1];
    if (length & 0x80) {
        const std::size_t count = length & 0x7F;
        if (count == 0 || count > 8 || rest_.size() - 2 < count) return std::nullopt;
        headerSize += count;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length << 8 | rest_[2 + i];
    }
    if (length > rest_.size() - headerSize) return std::nullopt;

    const auto size = static_cast<std::size_t>(length);
    const Element found{rest_[0], rest_.subspan(headerSize, size), rest_.first(headerSize + size)};
    rest_ = rest_.subspan(headerSize + size);
    return found;
}

std::optional<Element> Reader::next(unsigned char tag)
{
    if (rest_.empty() || rest_[0] != tag) return std::nullopt;
    return next();
}

Bytes ecdsaSignature(ByteView halves)
{
    const std::size_t half = halves.size() / 2;
    return sequence({unsignedInteger(halves.first(half)), unsignedInteger(halves.subspan(half))});
}

std::optional<Bytes> ecdsaHalves(ByteView signature, std::size_t half)
{
    const auto outer = Reader(signature).next(tagSequence);
    if (!outer) return std::nullopt;
    Reader numbers(outer->content);
    Bytes halves(2 * half);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto number = numbers.next(tagInteger);
        if (!number) return std::nullopt;
        const ByteView digits = withoutLeadingZeros(number->content);
        if (digits.size() > half) return std::nullopt;
        std::ranges::copy(digits, halves.begin() + static_cast<std::ptrdiff_t>((i + 1) * half - digits.size()));
    }
    return halves;
}

} // namespace quelta::der
