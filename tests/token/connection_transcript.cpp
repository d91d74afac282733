#include "csp/csp_scenario.h"
#include "ksp/ksp_scenario.h"

namespace quelta::test {

class ConnectionTranscript : public Scenario {
protected:
    void openBoth()
    {
        csp.acquire();
        ksp.openProvider();
    }

    CspCalls csp{recorder};
    KspCalls ksp{recorder};
};

TRANSCRIPT(ConnectionTranscript, "the first opening starts the library and the monitor")
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

TRANSCRIPT(ConnectionTranscript, "the library is started again until a device was opened")
{
    token.unplug();
    openBoth();
    errorsAlone();
    token.connect({"TOKEN-1"});
    for (int i = 0; i < 2; ++i) token.willAnswer(Call::initDevice, -21);
    openBoth();
    recorder.note("a start that fails is not noticed");
    token.willAnswer(Call::init, 7);
    openBoth();
}

TRANSCRIPT(ConnectionTranscript, "a token that was pulled out is opened again and its PIN is asked for again")
{
    errorsAlone();
    openBoth();
    cachePin();
    token.unplug();
    waitForTwoPolls();
    token.connect({"TOKEN-1"});
    waitForTwoPolls();
    openBoth();
    user.entersPin("1234");
    csp("CPGenKey", {CALG_RSA_SIGN});
}

} // namespace quelta::test
