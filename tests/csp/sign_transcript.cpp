#include "csp/csp_scenario.h"

namespace quelta::test {

class SignTranscript : public CspScenario {};

TEST_F(SignTranscript, SignOnHasExpiredAndTheUserGivesThePIN)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    open();
    const HCRYPTHASH hash = finishedHash();
    cachePin("old pin");
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1235");
    user.acknowledges();
    user.entersPin("1234");
    csp.signHash(hash, AT_SIGNATURE, room(300));
}

} // namespace quelta::test
