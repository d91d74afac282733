#pragma once

#include "csp/csp_calls.h"
#include "support/scenario.h"

#include "csp/entry_points.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"

namespace quelta::test {

class CspScenario : public Scenario {
protected:
    // Silent, and required to succeed.
    void open(const char* container = nullptr);
    void openContainerOf(const QueltaKeyPair& pair);
    HCRYPTKEY userKey(DWORD keySpec = AT_SIGNATURE);
    HCRYPTKEY importedKey(const Bytes& blob, HCRYPTKEY with = 0);
    // A symmetric key that the token's key-exchange key decrypts to these bytes.
    HCRYPTKEY sessionKey(ALG_ID algorithm, const Bytes& value);
    HCRYPTHASH newHash(ALG_ID algorithm = CALG_SHA_256);
    // Of the digest 01 02 ... 20.
    HCRYPTHASH finishedHash();

    // What its record holds, which no call tells in full.
    void noteKey(HCRYPTKEY key);

    CspCalls csp{recorder};
};

} // namespace quelta::test
