// The record behind HCRYPTKEY, owned by the handle and freed by CPDestroyKey. It never changes once made.
#pragma once

#include "csp/entry.h"
#include "token/token_key.h"

namespace quelta {

// What a signing key pair on an elliptic curve is called, where one of RSA is CALG_RSA_SIGN.
constexpr ALG_ID algorithmEcSign = 0x2200;

// `algorithm` holds an ALG_ID for a key pair of the token and for a key that came wrapped under a token key; the token's
// algorithm code (1 to 4) for an imported public key; the encryption-type code for a symmetric key that came in clear or
// encrypted to a key pair.
struct KeyContext : TokenKey {};

// Null for a null handle.
KeyContext* keyOf(HCRYPTKEY handle);

} // namespace quelta
