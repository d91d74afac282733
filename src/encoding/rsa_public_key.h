// Converts an RSA public key from the token's form, a bare big-endian modulus, to the form that the device library needs to
// encrypt and verify, a DER SubjectPublicKeyInfo (RFC 5280, RFC 8017). No function here reports an error.
#pragma once

#include "base/bytes.h"

namespace quelta {

// Converts hexadecimal to bytes. Drops a leading "0x", adds a 0 before an odd number of digits, reads other characters as 0.
Bytes hexToBytes(std::string_view text);

Bytes encodeDerLength(std::size_t length);
Bytes encodeDerTlv(unsigned char tag, ByteView content);

// Returns the SubjectPublicKeyInfo. Modulus and exponent begin with the most significant byte. Leading zero bytes stay.
Bytes rsaPublicKeyToDer(ByteView modulus, ByteView exponent);
// The same, from hexadecimal texts.
Bytes rsaPublicKeyToDer(std::string_view modulusHex, std::string_view exponentHex);

// Returns the SubjectPublicKeyInfo of a raw modulus with the exponent 65537.
Bytes rawModulusToDer(ByteView modulus);

// True if the key is a raw modulus. A key that begins with 0x30 counts as DER; an empty key is no modulus.
bool isRawModulus(ByteView publicKey);

// Returns a stored public key in the library's form: wraps a raw modulus, and leaves DER and an empty key as they are.
Bytes publicKeyForDevice(ByteView publicKey);

} // namespace quelta
