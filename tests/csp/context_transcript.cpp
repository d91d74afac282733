#include "csp/csp_scenario.h"

namespace quelta::test {

class ContextTranscript : public CspScenario {};

TEST_F(ContextTranscript, FirstOpeningStartsTheLibraryAndTheMonitorLaterOnesFindThemRunning)
{
    token.connect({"TOKEN-1", "TOKEN-2"});
    token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    stopMonitor();
    csp.acquire();
    csp.acquire("whatever the name", CRYPT_VERIFYCONTEXT | CRYPT_SILENT);
    csp.release();
}

TEST_F(ContextTranscript, TokenWithoutKeysIsAccepted)
{
    csp.acquire("", CRYPT_NEWKEYSET);
}

TEST_F(ContextTranscript, WithoutATokenOrWithOneThatDoesNotOpenTheLibraryIsStartedAgainEachTime)
{
    token.unplug();
    csp.acquire(nullptr, CRYPT_VERIFYCONTEXT);
    token.connect({FakeDeviceLibrary::deviceId});
    token.willAnswer(Call::initDevice, -7);
    csp.acquire();
    recorder.note("a library that does not start is not noticed");
    token.willAnswer(Call::init, 5);
    csp.acquire();
}

TEST_F(ContextTranscript, ReleaseWithFlagsReleasesNothing)
{
    open();
    csp.release(1);
    csp.release();
    csp.context = 0;
    csp.release(1);
    csp.release();
}

TEST_F(ContextTranscript, ContainersAreThoseOfTheOpening)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    open();
    token.withKeyPair(usageSigning, algorithmRsa2048);
    csp.getProvParam(PP_ENUMCONTAINERS, room(33), CRYPT_FIRST);
    csp.getProvParam(PP_ENUMCONTAINERS, room(33), CRYPT_NEXT);
}

TEST_F(ContextTranscript, AtLevelTwoErrorsAlone)
{
    errorsAlone();
    csp.acquire();
    csp.release();
    tokenState().libraryInitialised = false;
    token.willAnswer(Call::initDevice, 3);
    csp.acquire();
    token.unplug();
    csp.acquire();
}

} // namespace quelta::test
