#pragma once

#include "base/bytes.h"

namespace quelta {

// Debug lines that say which form a stored key was found in.
struct PublicKeyTexts {
    const char* alreadyDer;
    const char* rawModulus;
};

// A stored public key as the device library wants it: DER as it stands, an empty key too; a raw modulus wrapped.
Bytes publicKeyForDevice(ByteView publicKey, const PublicKeyTexts& texts);

} // namespace quelta
