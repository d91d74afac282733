#include "check.h"

#include "base/hex.h"
#include "encoding/rsa_public_key.h"
#include "log/utils.h"

#include <cstddef>
#include <cstdint>

using namespace quelta;

// The text up to the first line feed is the modulus, the rest the exponent.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    const auto end = text.find('\n');
    const std::string modulus = text.substr(0, end);
    const std::string exponent = end == std::string::npos ? "010001" : text.substr(end + 1);
    const Bytes bytes = hexToBytes(modulus);
    fuzz::check(hexToBytes("0x" + toHex(bytes)) == bytes);
    // An element has one byte of tag, then the length, then the content.
    fuzz::check(encodeDerTlv(0x04, bytes).size() == 1 + encodeDerLength(bytes.size()).size() + bytes.size());
    const Bytes der = rsaPublicKeyToDer(modulus, exponent);
    fuzz::check(!isRawModulus(der) && der.size() > bytes.size());
    rawModulusToDer(ByteView(data, size));
    for (const auto& piece : Utils::split(text, "\n")) fuzz::check(piece.size() <= text.size());
    return 0;
}
