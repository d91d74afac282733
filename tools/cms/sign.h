// Signs a file of any size. The file is hashed here; the token signs only the attributes.
#pragma once

#include "tools/console/files.h"
#include "tools/token/token_provider.h"

namespace quelta::tools {

struct SigningKey {
    TokenProvider& provider;
    const KeyEntry& key;
    const KnownDigest& hash;
};

// Returns a signature without the content.
Bytes signDetached(const SigningKey& signer, InputFile& file);
// Writes a signature with the content.
void signAttached(const SigningKey& signer, InputFile& file, OutputFile& output);
// Returns `message` with one more signature. Throws a Refusal if its signatures are not of this file.
Bytes signToo(const SigningKey& signer, ByteView message, InputFile& file);

} // namespace quelta::tools
