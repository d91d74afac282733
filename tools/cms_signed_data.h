// CMS SignedData (RFC 5652) for a detached content, put together by hand: for keys that crypt32 has no way to.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"
#include "digest.h"

#include <vector>

namespace quelta::tools {

// The value of the signing-time attribute for now, a Time in DER.
Bytes signingTimeNow();

// The three signed attributes of a signature over content with this digest, as the SET OF whose bytes are signed.
Bytes signedAttributes(ByteView contentDigest);

struct Signature {
    const KnownDigest* hash;
    const CERT_CONTEXT* signer;
    // As signedAttributes() gave them.
    Bytes attributes;
    // RSA: big-endian; ECDSA: the SEQUENCE of r and s.
    Bytes value;
};

// The whole ContentInfo. `certificates` are DER, the signer's among them.
Bytes detachedSignedData(const Signature& signature, const std::vector<Bytes>& certificates);

} // namespace quelta::tools
