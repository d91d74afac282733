#include "check.h"

#include "encoding/cng_blobs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

using namespace quelta;

namespace {

// A part of the blob, wherever its lengths say that it stands; every byte of it is read.
void checkWithin(ByteView blob, ByteView part)
{
    fuzz::check(part.size() <= blob.size());
    fuzz::check(part.data() >= blob.data() && part.data() + part.size() <= blob.data() + blob.size());
    const Bytes copy(part.begin(), part.end());
    fuzz::check(std::ranges::equal(copy, part));
}

// Any bytes at all are exported as if they were a modulus.
void checkExport(ByteView publicKey)
{
    const Bytes written = writeCngPublicBlob(publicKey);
    const auto again = parseCngPublicBlob(written);
    fuzz::check(again && std::ranges::equal(again->modulus, publicKey) && again->bitLength == publicKey.size() * 8);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView blob(data, size);
    if (const auto key = parseCngPublicBlob(blob)) checkWithin(blob, key->modulus);
    if (const auto key = parseKeyDataBlob(blob)) {
        checkWithin(blob, *key);
        fuzz::check(key->data() == blob.data() + 12);
    }
    checkExport(blob);
    return 0;
}
