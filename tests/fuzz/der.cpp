#include "check.h"

#include "common/der_reader.h"

#include <cstddef>
#include <cstdint>

using namespace quelta;

namespace {

// DER has one encoding for each value. So a value that was read is written with the same bytes.
void checkValues(der::Reader reader, const der::Element& element)
{
    const auto same = [&](const Bytes& written) { return sameBytes(written, element.whole); };
    fuzz::check(same(der::element(element.tag, element.content)));
    const bool tagGoesOn = (element.tag & 0x1F) == 0x1F;
    fuzz::check(!tagGoesOn);
    if (const auto number = der::Reader(reader).unsignedInteger()) fuzz::check(same(der::unsignedInteger(*number)));
    if (const auto dotted = der::Reader(reader).oid()) fuzz::check(same(der::oid(*dotted)));
    if (const auto bits = der::Reader(reader).bitString()) fuzz::check(same(der::bitString(*bits)));
    if (const auto halves = der::ecdsaHalves(element.whole, 8)) fuzz::check(same(der::ecdsaSignature(*halves)));
    der::Reader(reader).smallInteger();
}

void walk(ByteView content, int depth)
{
    der::Reader reader(content);
    for (der::Reader before = reader;; before = reader) {
        const auto element = reader.next();
        if (!element) return;
        fuzz::checkWithin(content, element->whole);
        fuzz::checkWithin(element->whole, element->content);
        checkValues(before, *element);
        if (depth > 0) walk(element->content, depth - 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    walk({data, size}, 8);
    return 0;
}
