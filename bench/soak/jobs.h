// The jobs that a thread of a worker does with the module. The most significant byte comes first everywhere.
#pragma once

#include "crypto/asymmetric_key.h"
#include "soak/caller.h"

namespace quelta::soak {

using namespace test;

// Reads the token that soak.sh made, without the module. Call this first.
void readToken();
// Opens an interface and does some jobs, all chosen at random.
void useInterface(Caller& caller);
// Enters a wrong PIN through each interface, while nobody else calls.
void enterWrongPins(Caller& caller);
// Returns false, and adds a line to the report, if the signature does not verify.
bool judgeSignature(const Caller& caller, const softtoken::PublicKey& key, ByteView digest, ByteView signature);

} // namespace quelta::soak
