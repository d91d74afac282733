#include "base/der.h"

#include <algorithm>
#include <charconv>

namespace quelta::der {

namespace {

constexpr unsigned char longForm = 0x80;
constexpr unsigned char moreFollows = 0x80;

// Appends `arc` in base 128: most significant group first, the top bit set in every byte except the last.
void appendArc(Bytes& to, std::uint64_t arc)
{
    Bytes groups{static_cast<unsigned char>(arc & 0x7F)};
    while (arc >>= 7) groups.push_back(static_cast<unsigned char>(moreFollows | (arc & 0x7F)));
    to.insert(to.end(), groups.rbegin(), groups.rend());
}

ByteView withoutLeadingZeros(ByteView number)
{
    while (!number.empty() && number.front() == 0) number = number.subspan(1);
    return number;
}

} // namespace

Bytes length(std::uint64_t value)
{
    if (value < longForm) return {static_cast<unsigned char>(value)};
    Bytes bytes;
    for (; value != 0; value >>= 8) bytes.insert(bytes.begin(), static_cast<unsigned char>(value & 0xFF));
    bytes.insert(bytes.begin(), static_cast<unsigned char>(longForm | bytes.size()));
    return bytes;
}

Bytes header(unsigned char tag, std::uint64_t contentLength)
{
    return concat({ByteView(&tag, 1), length(contentLength)});
}

Bytes element(unsigned char tag, ByteView content)
{
    return concat({header(tag, content.size()), content});
}

Bytes sequence(std::initializer_list<ByteView> parts)
{
    return element(tagSequence, concat(parts));
}

Bytes setOf(std::vector<Bytes> elements, unsigned char tag)
{
    std::ranges::sort(elements);
    Bytes content;
    for (const Bytes& item : elements) append(content, item);
    return element(tag, content);
}

Bytes oid(std::string_view dotted)
{
    std::vector<std::uint64_t> arcs;
    const char* const end = dotted.data() + dotted.size();
    for (const char* at = dotted.data(); at < end; ++at) {
        std::uint64_t arc = 0;
        at = std::from_chars(at, end, arc).ptr;
        arcs.push_back(arc);
    }
    Bytes content;
    appendArc(content, arcs.at(0) * 40 + arcs.at(1));
    for (std::size_t i = 2; i < arcs.size(); ++i) appendArc(content, arcs[i]);
    return element(tagOid, content);
}

Bytes null()
{
    return element(tagNull, {});
}

Bytes smallInteger(unsigned char value)
{
    return unsignedInteger({&value, 1});
}

Bytes unsignedInteger(ByteView magnitude)
{
    const ByteView digits = withoutLeadingZeros(magnitude);
    constexpr unsigned char zero[] = {0};
    const bool needsZero = digits.empty() || (digits.front() & 0x80);
    return element(tagInteger, concat({needsZero ? ByteView(zero) : ByteView(), digits}));
}

Bytes octetString(ByteView bytes)
{
    return element(tagOctetString, bytes);
}

Bytes bitString(ByteView bytes, unsigned char unusedBits)
{
    return element(tagBitString, concat({ByteView(&unusedBits, 1), bytes}));
}

} // namespace quelta::der
