#include "tools/cms/ber_stream.h"

#include "base/der.h"
#include "tools/console/failure.h"

#include <algorithm>

namespace quelta::tools {

namespace {

constexpr std::size_t pieceSize = std::size_t{64} * 1024;
constexpr int deepest = 32;
constexpr std::uint64_t largestElement = 1024 * 1024;
constexpr unsigned char constructed = 0x20;

} // namespace

BerStream::BerStream(std::string name, Read read) : name_(std::move(name)), read_(std::move(read)), buffer_(pieceSize) {}

void BerStream::refuse() const
{
    throw Failure(name_ +
                  " is no CMS message of this kind in DER, or it is damaged; if it is PEM or S/MIME text, convert it first: " +
                  "openssl cms -cmsout -inform PEM (or SMIME) -in IN -outform DER -out OUT");
}

unsigned char BerStream::byte()
{
    unsigned char value = 0;
    bytes({&value, 1});
    return value;
}

bool BerStream::nextIs(unsigned char tag)
{
    fill();
    return buffer_[at_] == tag;
}

void BerStream::fill()
{
    if (at_ < end_) return;
    at_ = 0;
    end_ = read_(buffer_);
    if (!end_) throw Failure(name_ + " ends too early; get a complete copy of it");
}

void BerStream::bytes(std::span<unsigned char> into)
{
    while (!into.empty()) {
        fill();
        const std::size_t count = std::min(into.size(), end_ - at_);
        std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(at_), count, into.begin());
        at_ += count;
        position_ += count;
        into = into.subspan(count);
    }
}

BerStream::Header BerStream::header()
{
    Header head{byte(), false, byte()};
    if ((head.tag & 0x1F) == 0x1F) refuse();
    if (head.length == 0x80) {
        if (!(head.tag & constructed)) refuse();
        head.indefinite = true;
    } else if (head.length > 0x80) {
        const std::uint64_t count = head.length & 0x7F;
        if (count > 8) refuse();
        head.length = 0;
        for (std::uint64_t i = 0; i < count; ++i) head.length = head.length << 8 | byte();
    }
    return head;
}

BerStream::Level BerStream::enter(unsigned char tag)
{
    // The tag is checked before the length is read: the length of a file that is no CMS means nothing.
    if (!nextIs(tag)) refuse();
    const Header head = header();
    return {head.indefinite, position_ + head.length};
}

bool BerStream::atEnd(const Level& level)
{
    if (!level.indefinite) return position_ >= level.end;
    if (!nextIs(0)) return false;
    byte();
    if (byte()) refuse();
    return true;
}

template <class Take>
void BerStream::forEachPart(const Header& outer, Take take)
{
    const std::uint64_t start = position_;
    while (outer.indefinite || position_ - start < outer.length) {
        const Header part = header();
        // Two zero bytes end an element of indefinite length.
        if (outer.indefinite && !part.tag && !part.length) return;
        take(part);
    }
    if (position_ - start != outer.length) refuse();
}

Bytes BerStream::element()
{
    return elementAfter(header(), 0);
}

Bytes BerStream::elementAfter(const Header& head, int depth)
{
    if (depth > deepest || head.length > largestElement) refuse();
    Bytes content;
    if (head.tag & constructed) {
        forEachPart(head, [&](const Header& part) {
            append(content, elementAfter(part, depth + 1));
            if (content.size() > largestElement) refuse();
        });
    } else {
        content.resize(static_cast<std::size_t>(head.length));
        bytes(content);
    }
    return der::element(head.tag, content);
}

void BerStream::octets(const std::function<void(ByteView)>& take)
{
    if (nextIs(der::implicitTag(0))) return pass(header().length, take);
    wrappedOctets(take);
}

void BerStream::wrappedOctets(const std::function<void(ByteView)>& take)
{
    const Header head = header();
    if (head.tag != der::explicitTag(0)) refuse();
    segments(head, take, 0);
}

void BerStream::segments(const Header& outer, const std::function<void(ByteView)>& take, int depth)
{
    if (depth > deepest) refuse();
    forEachPart(outer, [&](const Header& part) {
        if (part.tag == der::tagOctetString)
            pass(part.length, take);
        else if (part.tag == (der::tagOctetString | constructed))
            segments(part, take, depth + 1);
        else
            refuse();
    });
}

void BerStream::pass(std::uint64_t length, const std::function<void(ByteView)>& take)
{
    Bytes piece;
    while (length) {
        piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(length, pieceSize)));
        bytes(piece);
        take(piece);
        length -= piece.size();
    }
}

} // namespace quelta::tools
