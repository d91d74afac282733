#include "csp/csp_scenario.h"

namespace quelta::test {

class SignTranscript : public CspScenario {
protected:
    SignTranscript()
    {
        openContainerOf(pair);
        cachePin("old pin");
        hash = finishedHash();
    }

    QueltaKeyPair& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    HCRYPTHASH hash;
};

TRANSCRIPT(SignTranscript, "a size query finishes the digest and chooses the key for the signing")
{
    const HCRYPTHASH open = newHash();
    csp.signHash(open, query(7), AT_KEYEXCHANGE);
    csp.signHash(open, room(256), AT_KEYEXCHANGE, 5);
    recorder.note("the token's number for the key has taken the place of the hash's");
    csp("CPGetHashParam", {open, HP_ALGID, room(4)});
    errorsAlone();
    for (const std::uint32_t type : {1, 3, 4, 5}) {
        pair.algorithm = type;
        csp.signHash(finishedHash(), query());
    }
}

TRANSCRIPT(SignTranscript, "the sign-on has expired, and the user gives the PIN")
{
    token.willAnswer(Call::signHash, 49);
    token.signature.bytes = counting(200);
    token.signature.evenIfRefused = true;
    user.entersPin("1235");
    user.acknowledges();
    user.entersPin("1234");
    csp.signHash(hash, room(300));
    errorsAlone();
    csp.signHash(hash, room(200));
    tokenState().pinCache.clear();
    user.entersPin("1234");
    csp.signHash(hash, room(200));
    recorder.note("the user cancels, or the sign-on expires a second time");
    token.signature = {};
    for (int i = 0; i < 3; ++i) token.willAnswer(Call::signHash, 49);
    for (int i = 0; i < 2; ++i) {
        user.cancels();
        csp.signHash(hash);
    }
    token.openSingleSignOn();
    csp.signHash(hash);
}

TRANSCRIPT(SignTranscript, "the last signing key of the token replaces a container's key that can't sign")
{
    pair.usage = usageKeyExchange;
    csp.signHash(hash);
    token.withKeyPair(usageSigning, algorithmRsa3072);
    token.withKeyPair(usageBoth, algorithmRsa4096);
    token.withKeyPair(4, algorithmRsa2048);
    csp.signHash(hash);
    recorder.note("without a container the first that can");
    open();
    csp.signHash(finishedHash());
    errorsAlone();
    recorder.note("the container's own, if it can, and none if the container is none");
    openContainerOf(token.keyPairs[1]);
    csp.signHash(finishedHash());
    open("nobody");
    csp.signHash(finishedHash());
}

TRANSCRIPT(SignTranscript, "the length changes during the call")
{
    errorsAlone();
    GuardedBuffer signature(256);
    DWORD length = signature.length();
    token.during(Call::getKeyPairList, [&] { length = 4096; });
    recorder.record("CPSignHash", "room 256, then 4096", [&] {
        CPSignHash(csp.context, hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length);
        return "length " + std::to_string(length);
    });
}

} // namespace quelta::test
