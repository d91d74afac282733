#include "encoding/rsa_public_key.h"

#include "base/der.h"
#include "base/hex.h"

namespace quelta {

namespace {

// A DER SEQUENCE of the object identifier rsaEncryption (1.2.840.113549.1.1.1) and NULL.
constexpr unsigned char rsaAlgorithmIdentifier[] = {
    0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00,
};

// DER asks for the shortest form, but here leading zeros stay, and no bytes give an empty number.
Bytes encodeInteger(ByteView magnitude)
{
    constexpr unsigned char zero[] = {0};
    const bool needsZero = !magnitude.empty() && magnitude.front() >= 0x80;
    return encodeDerTlv(der::tagInteger, concat({needsZero ? ByteView(zero) : ByteView(), magnitude}));
}

} // namespace

Bytes hexToBytes(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
    Bytes bytes;
    bytes.reserve((text.size() + 1) / 2);
    bool low = text.size() % 2 != 0;
    if (low) bytes.push_back(0);
    for (const char digit : text) {
        const unsigned char value = hexDigit(digit).value_or(0);
        if (low)
            bytes.back() |= value;
        else
            bytes.push_back(static_cast<unsigned char>(value << 4));
        low = !low;
    }
    return bytes;
}

Bytes encodeDerLength(std::size_t length)
{
    return der::length(length);
}

Bytes encodeDerTlv(unsigned char tag, ByteView content)
{
    return der::element(tag, content);
}

Bytes rsaPublicKeyToDer(ByteView modulus, ByteView exponent)
{
    const Bytes rsaKey = der::sequence({encodeInteger(modulus), encodeInteger(exponent)});
    return der::sequence({rsaAlgorithmIdentifier, der::bitString(rsaKey)});
}

Bytes rsaPublicKeyToDer(std::string_view modulusHex, std::string_view exponentHex)
{
    return rsaPublicKeyToDer(hexToBytes(modulusHex), hexToBytes(exponentHex));
}

Bytes rawModulusToDer(ByteView modulus)
{
    constexpr unsigned char exponent[] = {0x01, 0x00, 0x01};
    return rsaPublicKeyToDer(modulus, exponent);
}

bool isRawModulus(ByteView publicKey)
{
    return !publicKey.empty() && publicKey.front() != der::tagSequence;
}

Bytes publicKeyForDevice(ByteView publicKey)
{
    return isRawModulus(publicKey) ? rawModulusToDer(publicKey) : toBytes(publicKey);
}

} // namespace quelta
