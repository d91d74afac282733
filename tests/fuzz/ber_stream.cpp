#include "tools/cms/ber_stream.h"

#include "check.h"

#include "common/der_reader.h"
#include "tools/console/failure.h"

#include <algorithm>
#include <cstdint>

using namespace quelta;
using namespace quelta::tools;

namespace {

constexpr unsigned char constructed = 0x20;

bool isDer(ByteView content)
{
    for (der::Reader reader(content); !reader.atEnd();) {
        const auto element = reader.next();
        if (!element || ((element->tag & constructed) && !isDer(element->content))) return false;
    }
    return true;
}

BerStream streamOf(ByteView file, std::size_t atOnce)
{
    return {"input", [file, atOnce](std::span<unsigned char> room) mutable {
                const ByteView piece = file.first(std::min({file.size(), room.size(), atOnce}));
                std::ranges::copy(piece, room.begin());
                file = file.subspan(piece.size());
                return piece.size();
            }};
}

void readElement(BerStream stream, ByteView file)
{
    const Bytes element = stream.element();
    fuzz::check(isDer(element) && streamOf(element, element.size()).element() == element);
    // DER must come back unchanged.
    const auto first = der::Reader(file).next();
    if (first && isDer(first->whole)) fuzz::check(sameBytes(first->whole, element));
}

void readOctets(BerStream stream, ByteView file)
{
    std::size_t size = 0;
    stream.octets([&](ByteView piece) { size += piece.size(); });
    fuzz::check(size < file.size());
}

} // namespace

// The first byte chooses what is read, and how many bytes the stream returns at once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const ByteView file(data + 1, size - 1);
    try {
        (data[0] & 1 ? readOctets : readElement)(streamOf(file, data[0] / 2u + 1), file);
    } catch (const Failure&) {
    }
    return 0;
}
