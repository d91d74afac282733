// The record behind HCRYPTKEY. The handle owns the record; CPDestroyKey frees it. It does not change after it was made.
#pragma once

#include "csp/entry.h"
#include "token/token_key.h"

namespace quelta {

// The algorithm identifier of an elliptic-curve key pair that signs, as CALG_RSA_SIGN is for RSA.
constexpr ALG_ID algorithmEcSign = 0x2200;

// `algorithm` is an ALG_ID for a key pair of the token and for a key that was imported wrapped under a token key. It is the
// token's algorithm code (1 to 4) for an imported public key. It is the encryption-type code for a symmetric key that was
// imported in clear or encrypted to a key pair.
struct KeyContext : TokenKey {};

// Returns null for a null handle.
KeyContext* keyOf(HCRYPTKEY handle);

} // namespace quelta
