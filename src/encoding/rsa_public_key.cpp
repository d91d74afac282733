#include "encoding/rsa_public_key.h"

#include "log/utils.h"

#include <array>

namespace quelta {

namespace {

constexpr unsigned char tagInteger = 0x02;
constexpr unsigned char tagBitString = 0x03;
constexpr unsigned char tagSequence = 0x30;

// SEQUENCE of the object identifier rsaEncryption (1.2.840.113549.1.1.1) and NULL.
constexpr std::array<unsigned char, 15> rsaAlgorithmIdentifier = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86,
                                                                  0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00};

unsigned char digitValue(char digit)
{
    if (digit >= '0' && digit <= '9') return static_cast<unsigned char>(digit - '0');
    if (digit >= 'a' && digit <= 'f') return static_cast<unsigned char>(digit - 'a' + 10);
    if (digit >= 'A' && digit <= 'F') return static_cast<unsigned char>(digit - 'A' + 10);
    return 0;
}

Bytes concatenated(ByteView first, ByteView second)
{
    Bytes all(first.begin(), first.end());
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

Bytes encodeInteger(Bytes magnitude)
{
    if (!magnitude.empty() && magnitude.front() >= 0x80) magnitude.insert(magnitude.begin(), 0x00);
    return encodeDerTlv(tagInteger, magnitude);
}

} // namespace

Bytes hexToBytes(std::string_view text)
{
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
    Bytes bytes;
    bytes.reserve((text.size() + 1) / 2);
    if (text.size() % 2 != 0) {
        bytes.push_back(digitValue(text.front()));
        text.remove_prefix(1);
    }
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(digitValue(text[i]) << 4 | digitValue(text[i + 1])));
    }
    return bytes;
}

Bytes encodeDerLength(std::size_t length)
{
    if (length < 0x80) return {static_cast<unsigned char>(length)};
    Bytes bytes;
    for (; length != 0; length >>= 8) bytes.insert(bytes.begin(), static_cast<unsigned char>(length & 0xFF));
    bytes.insert(bytes.begin(), static_cast<unsigned char>(0x80 + bytes.size()));
    return bytes;
}

Bytes encodeDerTlv(unsigned char tag, ByteView content)
{
    Bytes encoded = {tag};
    const Bytes length = encodeDerLength(content.size());
    encoded.insert(encoded.end(), length.begin(), length.end());
    encoded.insert(encoded.end(), content.begin(), content.end());
    return encoded;
}

Bytes rsaPublicKeyToDer(std::string_view modulusHex, std::string_view exponentHex)
{
    const Bytes modulus = encodeInteger(hexToBytes(modulusHex));
    const Bytes exponent = encodeInteger(hexToBytes(exponentHex));
    const Bytes rsaKey = encodeDerTlv(tagSequence, concatenated(modulus, exponent));
    const Bytes noUnusedBits = {0x00};
    const Bytes bits = encodeDerTlv(tagBitString, concatenated(noUnusedBits, rsaKey));
    return encodeDerTlv(tagSequence, concatenated(rsaAlgorithmIdentifier, bits));
}

bool isDer(ByteView publicKey)
{
    return !publicKey.empty() && publicKey.front() == tagSequence;
}

Bytes rawModulusToDer(ByteView modulus)
{
    return rsaPublicKeyToDer(Utils::toHex(modulus.data(), static_cast<int>(modulus.size())), "010001");
}

} // namespace quelta
