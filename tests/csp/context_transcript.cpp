#include "csp/csp_scenario.h"

namespace quelta::test {

using ContextTranscript = CspScenario;

TRANSCRIPT(ContextTranscript, "the first opening starts the library and the monitor")
{
    token.connect({"TOKEN-1", "TOKEN-2"});
    token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    stopMonitor();
    csp.acquire();
    csp.acquire("whatever the name", CRYPT_VERIFYCONTEXT | CRYPT_SILENT);
    csp("CPReleaseContext", {1});
    csp("CPReleaseContext");
    token.keyPairs.clear();
    csp.acquire("", CRYPT_NEWKEYSET);
}

} // namespace quelta::test
