// The jobs that a thread of a worker does with the module. The most significant byte comes first everywhere.
#pragma once

#include "crypto/asymmetric_key.h"
#include "soak/caller.h"

namespace quelta::soak {

using namespace test;

// Reads the token that soak.sh made, not through the module. Call it before the following.
void readToken();
// Opens one of the interfaces and does some jobs, all drawn by lot.
void useInterface(Caller& caller);
// Enters one through each interface, while nobody else calls.
void enterWrongPins(Caller& caller);
// False for a signature that does not verify.
bool judgeSignature(const Caller& caller, const softtoken::PublicKey& key, ByteView digest, ByteView signature);

} // namespace quelta::soak
