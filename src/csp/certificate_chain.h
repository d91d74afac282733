#pragma once

#include "csp/context.h"
#include "csp/output.h"

namespace quelta {

// The certificates of the context's container and their issuers as far as the token holds them, as a PKCS#7 message without
// signers (RFC 2315), the root end first.
Answer exportCertificateChain(const CspContext& context, Output out);

} // namespace quelta
