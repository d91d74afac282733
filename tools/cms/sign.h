// Signs a file of any size. It is hashed here; the token signs the attributes alone.
#pragma once

#include "tools/console/files.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

struct SigningKey {
    TokenProvider& provider;
    const KeyEntry& key;
    const KnownDigest& hash;
};

// The signature alone.
Bytes signDetached(const SigningKey& signer, InputFile& file);
// The content within.
void signAttached(const SigningKey& signer, InputFile& file, OutputFile& output);
// `message` with one signature more. Throws a Refusal if those that are there are not of this file.
Bytes signToo(const SigningKey& signer, ByteView message, InputFile& file);

} // namespace quelta::tools
