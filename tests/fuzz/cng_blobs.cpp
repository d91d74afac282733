#include "check.h"

#include "encoding/cng_blobs.h"

#include <cstddef>
#include <cstdint>

using namespace quelta;

namespace {

// Exports the bytes as if they were a modulus, and reads them back.
void checkExport(ByteView publicKey)
{
    const Bytes written = writeCngPublicBlob(publicKey);
    const auto again = parseCngPublicBlob(written);
    fuzz::check(again && sameBytes(again->modulus, publicKey) && again->bitLength == publicKey.size() * 8);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView blob(data, size);
    if (const auto key = parseCngPublicBlob(blob)) fuzz::checkWithin(blob, key->modulus);
    if (const auto key = parseKeyDataBlob(blob)) {
        fuzz::checkWithin(blob, *key);
        fuzz::check(key->data() == blob.data() + 12);
    }
    checkExport(blob);
    return 0;
}
