// Signs a file of any size, detached.
#pragma once

#include "csp_provider.h"
#include "digest.h"
#include "files.h"

namespace quelta::tools {

// CMS SignedData over the file with crypt32's message functions. SHA-1 and SHA-256 only: crypt32 reads the digest back for the
// message-digest attribute, and the provider reads back no other.
Bytes signWithMessageFunctions(CspProvider& provider, const TokenKey& key, const KnownDigest& hash, InputFile& file);

// The same message put together by hand: the file is hashed here, the token signs the attributes alone. For every kind of key.
Bytes signByAttributes(TokenProvider& provider, const TokenKey& key, const KnownDigest& hash, InputFile& file);

} // namespace quelta::tools
