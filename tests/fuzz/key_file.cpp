#include "check.h"

#include "common/text.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "crypto/symmetric.h"
#include "formats/base64.h"
#include "formats/key_file.h"

#include <cstdint>

// In place of the calculations, whose time would be all of a run: nothing is encrypted, and every digest and point is zero.
namespace quelta {

std::string toUtf8(std::wstring_view wide)
{
    std::string text;
    for (const wchar_t unit : wide) text += static_cast<char>(unit & 0x7F);
    return text;
}

namespace softtoken {

constexpr Curve onlyCurve{knownCurves[0], 0, "", "", "", "", ""};

const Curve* curveOfOid(std::string_view oid)
{
    return oid == onlyCurve.oid ? &onlyCurve : nullptr;
}
Bytes pointOfScalar(const Curve&, ByteView)
{
    return Bytes(1);
}
bool isPointOnCurve(const Curve&, ByteView)
{
    return true;
}
Bytes digest(const KnownDigest& algorithm, ByteView)
{
    return Bytes(algorithm.size);
}
Bytes hmac(const KnownDigest& algorithm, ByteView, ByteView)
{
    return Bytes(algorithm.size);
}
Bytes pbkdf2(const KnownDigest&, ByteView, ByteView, std::uint64_t, std::size_t size)
{
    return Bytes(size);
}
Bytes pkcs12Derive(const KnownDigest&, Purpose, const std::string*, ByteView, std::uint64_t, std::size_t size)
{
    return Bytes(size);
}
Bytes paddedDecrypt(Cipher, ByteView, ByteView, ByteView data)
{
    return toBytes(data);
}
Bytes fromBase64(std::string_view text)
{
    return toBytes(text);
}
std::string toBase64(ByteView bytes)
{
    return toText(bytes);
}

} // namespace softtoken
} // namespace quelta

using namespace quelta;
using namespace quelta::softtoken;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        for (const KeyOfFile& item : readKeyFile({data, size}, "password").keys) {
            const Bytes written = encodePrivateKey(item.key);
            fuzz::check(encodePrivateKey(decodePrivateKey(written)) == written);
            fuzz::check(decodePublicKey(encodePublicKey(publicOf(item.key))) == publicOf(item.key));
        }
    } catch (const TokenError&) {
    }
    return 0;
}
