#include "check.h"

#include "encoding/capi_blobs.h"

#include <cstddef>
#include <cstdint>

using namespace quelta;

namespace {

void parsePublicKey(ByteView blob)
{
    const auto key = parseCapiPublicBlob(blob);
    if (!key) return;
    fuzz::checkWithin(blob, key->modulus);
    fuzz::check(key->modulus.size() == key->bitLength / 8);
    fuzz::check(!capiPublicKeyToDer(*key).empty());
    const Bytes written = writeCapiPublicBlob(0, Bytes(key->modulus.rbegin(), key->modulus.rend()));
    const auto again = parseCapiPublicBlob(written);
    fuzz::check(again && sameBytes(again->modulus, key->modulus));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView blob(data, size);
    if (size >= capiBlobHeaderSize) fuzz::check(readCapiBlobHeader(blob).type == blob[0]);
    parsePublicKey(blob);
    if (size >= capiKeyBlobHeaderSize) {
        fuzz::checkWithin(blob, keyOfCapiBlob(blob));
        fuzz::checkWithin(blob, wrappedKeyOfCapiBlob(blob));
        fuzz::check(wrappedKeyOfCapiBlob(blob).size() == size - capiKeyBlobHeaderSize);
    }
    return 0;
}
