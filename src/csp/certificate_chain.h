#pragma once

#include "csp/context.h"
#include "csp/output.h"

namespace quelta {

// Writes the certificate chain of the context's container as a PKCS#7 message without signers (RFC 2315), the root end first.
// Windows builds the chain, also from issuers on the token. If no certificate fits the container: NTE_NO_KEY and length 0.
Answer exportCertificateChain(const CspContext& context, Output out);

} // namespace quelta
