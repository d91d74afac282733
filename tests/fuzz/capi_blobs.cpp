#include "check.h"

#include "encoding/capi_blobs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

using namespace quelta;

namespace {

void parsePublicKey(ByteView blob)
{
    const auto key = parseCapiPublicBlob(blob);
    if (!key) return;
    fuzz::check(key->modulus.size() == key->bitLength / 8);
    fuzz::check(!capiPublicKeyToDer(*key).empty());
    const Bytes written = writeCapiPublicBlob(0, Bytes(key->modulus.rbegin(), key->modulus.rend()));
    const auto again = parseCapiPublicBlob(written);
    fuzz::check(again && std::ranges::equal(again->modulus, key->modulus));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView blob(data, size);
    fuzz::check(readCapiBlobHeader(blob).has_value() == (size >= capiBlobHeaderSize));
    parsePublicKey(blob);
    if (size >= capiKeyBlobHeaderSize) {
        // Added up so that every byte of both views is read.
        std::size_t sum = 0;
        for (const unsigned char byte : keyOfCapiBlob(blob)) sum += byte;
        for (const unsigned char byte : wrappedKeyOfCapiBlob(blob)) sum += byte;
        fuzz::check(sum <= 2 * 255 * size);
        fuzz::check(wrappedKeyOfCapiBlob(blob).size() == size - capiKeyBlobHeaderSize);
    }
    return 0;
}
