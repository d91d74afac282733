// Bridges the two forms of an RSA public key: the token gives a bare big-endian modulus, the device library's encryption and
// verification want a DER SubjectPublicKeyInfo (RFC 5280, RFC 8017). Nothing here reports an error.
#pragma once

#include "base/bytes.h"

namespace quelta {

// A leading "0x" is dropped, an odd number of digits gets a 0 in front, and what is no hexadecimal digit counts as 0.
Bytes hexToBytes(std::string_view text);

Bytes encodeDerLength(std::size_t length);
Bytes encodeDerTlv(unsigned char tag, ByteView content);

// The SubjectPublicKeyInfo of modulus and exponent, most significant byte first. Leading zero bytes stay.
Bytes rsaPublicKeyToDer(ByteView modulus, ByteView exponent);
// The same from hexadecimal texts.
Bytes rsaPublicKeyToDer(std::string_view modulusHex, std::string_view exponentHex);

// A raw modulus with the exponent 65537.
Bytes rawModulusToDer(ByteView modulus);

// A key whose first byte is 0x30 is taken for DER.
bool isRawModulus(ByteView publicKey);

// A stored public key as the device library wants it: a raw modulus wrapped, DER as it stands, and no bytes as none.
Bytes publicKeyForDevice(ByteView publicKey);

} // namespace quelta
