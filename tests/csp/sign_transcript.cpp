#include "csp/csp_scenario.h"

namespace quelta::test {

class SignTranscript : public CspScenario {
protected:
    void openWithKey(std::uint32_t usage = usageSigning, std::uint32_t algorithm = algorithmRsa2048)
    {
        openContainerOf(token.withKeyPair(usage, algorithm));
    }
};

TEST_F(SignTranscript, SizeQueryFinishesTheDigestAndSettlesTheKeyForTheSigningThatFollows)
{
    openWithKey();
    cachePin();
    const HCRYPTHASH hash = newHash();
    csp.signHash(hash, AT_KEYEXCHANGE, query(7));
    csp.signHash(hash, AT_KEYEXCHANGE, room(256), 5);
    recorder.note("the token's number for the key has taken the place of the hash's");
    csp.getHashParam(hash, HP_ALGID, room(4));
}

TEST_F(SignTranscript, SizeComesFromTheKeysType)
{
    openWithKey();
    errorsAlone();
    for (const std::uint32_t type : {1, 2, 3, 4, 5}) {
        token.keyPairs[0].algorithm = type;
        csp.signHash(finishedHash(), AT_SIGNATURE, query());
    }
}

TEST_F(SignTranscript, UserGivesThePINAndTheSignatureIsTurned)
{
    openWithKey(usageBoth);
    token.signature.bytes = counting(200);
    user.entersPin("1234");
    csp.signHash(finishedHash(), AT_SIGNATURE, room(300));
    csp.signHash(finishedHash(), AT_SIGNATURE, room(200));
}

TEST_F(SignTranscript, SignOnHasExpiredAndTheUserGivesThePIN)
{
    openWithKey();
    cachePin("old pin");
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1235");
    user.acknowledges();
    user.entersPin("1234");
    csp.signHash(finishedHash(), AT_SIGNATURE, room(300));
}

TEST_F(SignTranscript, SignOnHasExpiredAndTheUserCancels)
{
    openWithKey();
    cachePin();
    const HCRYPTHASH hash = finishedHash();
    token.willAnswer(Call::signHash, 49);
    user.cancels();
    csp.signHash(hash, AT_SIGNATURE, room(256));
    recorder.note("no PIN is left");
    errorsAlone();
    user.cancels();
    csp.signHash(hash, AT_SIGNATURE, room(256));
}

TEST_F(SignTranscript, SignOnExpiresASecondTime)
{
    openWithKey();
    token.openSingleSignOn();
    token.willAnswer(Call::signHash, 49);
    token.willAnswer(Call::signHash, 49);
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
}

TEST_F(SignTranscript, ContainersKeyThatCanNotSignIsReplacedByTheLastOneOfTheTokenThatCan)
{
    errorsAlone();
    cachePin();
    openWithKey(usageKeyExchange);
    token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageBoth, algorithmRsa2048);
    token.withKeyPair(4, algorithmRsa2048);
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
    recorder.note("without a container the first that can");
    open();
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
    recorder.note("the container's own, if it can");
    openContainerOf(token.keyPairs[2]);
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
}

TEST_F(SignTranscript, WithoutAKeyThatSignsNothingIsSigned)
{
    openWithKey(usageKeyExchange);
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
    token.withKeyPair(usageSigning, algorithmRsa2048);
    open("nobody");
    csp.signHash(finishedHash(), AT_SIGNATURE, query());
}

TEST_F(SignTranscript, FailuresOfTheTokenAndLengthsThatCanNotBe)
{
    openWithKey();
    cachePin();
    const HCRYPTHASH hash = newHash(CALG_SHA_512);
    csp.signHash(hash, AT_SIGNATURE, nowhere());
    csp.signHash(hash, AT_SIGNATURE, Place{1, 0x80000000});
    token.willAnswer(Call::finalHash, 3);
    csp.signHash(hash, AT_SIGNATURE, room(256));
    token.digest.reportedLength = 129;
    csp.signHash(hash, AT_SIGNATURE, room(256));
    token.digest = {};
    errorsAlone();
    recorder.note("a size query may state any room");
    csp.signHash(hash, AT_SIGNATURE, query(0x80000000));
    token.willAnswer(Call::signHash, 17);
    csp.signHash(hash, AT_SIGNATURE, room(256));
    token.signature.bytes = Bytes();
    for (const int reported : {-1, 257}) {
        token.signature.reportedLength = reported;
        csp.signHash(hash, AT_SIGNATURE, room(256));
    }
}

TEST_F(SignTranscript, LastErrorIsTheCallersWhateverTheLibraryAndTheLogLeaveThere)
{
    openWithKey();
    const HCRYPTHASH hash = newHash();
    for (const Call call : {Call::finalHash, Call::getKeyPairList, Call::getTokenInfo, Call::validatePassword, Call::signHash}) {
        token.during(call, [this] {
            user.watch();
            SetLastError(ERROR_DEVICE_NOT_CONNECTED);
        });
    }
    user.entersPin("1234");
    csp.signHash(hash, AT_SIGNATURE, room(256));
    errorsAlone();
    csp.signHash(hash, AT_SIGNATURE, room(256));
}

TEST_F(SignTranscript, AtLevelTwoErrorsAlone)
{
    openWithKey();
    cachePin();
    token.willAnswer(Call::signHash, 17);
    errorsAlone();
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
    token.keyPairs.clear();
    csp.signHash(finishedHash(), AT_SIGNATURE, room(256));
}

} // namespace quelta::test
