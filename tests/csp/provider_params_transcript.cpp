#include "csp/csp_scenario.h"

namespace quelta::test {

class ProviderParamsTranscript : public CspScenario {
protected:
    void openOwnContainer(std::uint32_t usage = usageBoth) { openContainerOf(token.withKeyPair(usage, algorithmRsa2048)); }
};

TEST_F(ProviderParamsTranscript, EachIsAnsweredWhereThereIsRoom)
{
    openOwnContainer();
    for (const DWORD parameter :
         {PP_IMPTYPE, PP_NAME, PP_VERSION, PP_CONTAINER, PP_UNIQUE_CONTAINER, PP_PROVTYPE, PP_KEYSTORAGE, PP_KEYSET_TYPE,
          PP_ADMIN_PIN, PP_KEYEXCHANGE_PIN, PP_SIGNATURE_PIN, PP_USE_HARDWARE_RNG, PP_KEYSPEC, PP_ENUMEX_SIGNING_PROT}) {
        csp.getProvParam(parameter, room(40));
    }
}

TEST_F(ProviderParamsTranscript, SizesAreToldInThreeStyles)
{
    openOwnContainer();
    csp.getProvParam(PP_NAME, room(33));
    csp.getProvParam(PP_IMPTYPE, room(3));
    csp.getProvParam(PP_USE_HARDWARE_RNG, room(3));
    csp.getProvParam(PP_KEYSPEC, room(3));
    errorsAlone();
    csp.getProvParam(PP_ENUMEX_SIGNING_PROT, room(3));
    for (const Place& place : {query(100), room(34)}) csp.getProvParam(PP_NAME, place);
    for (const Place& place : {query(100), room(4)}) csp.getProvParam(PP_IMPTYPE, place);
    for (const Place& place : {query(100), room(3)}) csp.getProvParam(PP_KEYSTORAGE, place);
    for (const Place& place : {query(100), room(31)}) csp.getProvParam(PP_ENUMALGS, place, CRYPT_FIRST);
    for (const Place& place : {query(100), room(87)}) csp.getProvParam(PP_ENUMALGS_EX, place, CRYPT_FIRST);
    for (const Place& place : {query(100), room(32)}) csp.getProvParam(PP_ENUMCONTAINERS, place, CRYPT_FIRST);
}

TEST_F(ProviderParamsTranscript, AlgorithmsAreEnumeratedFromTheFirstToTheFourth)
{
    openOwnContainer();
    csp.getProvParam(PP_ENUMALGS, room(32), CRYPT_FIRST);
    for (int i = 0; i < 4; ++i) csp.getProvParam(PP_ENUMALGS, room(32), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMALGS, room(32));
    csp.getProvParam(PP_ENUMALGS_EX, room(88), CRYPT_FIRST);
    for (int i = 0; i < 4; ++i) csp.getProvParam(PP_ENUMALGS_EX, room(88), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMALGS_EX, room(88), CRYPT_FIRST | CRYPT_NEXT);
}

TEST_F(ProviderParamsTranscript, BothAlgorithmEnumerationsShareOnePositionAndASizeQueryUsesUpAnItem)
{
    openOwnContainer();
    errorsAlone();
    csp.getProvParam(PP_ENUMALGS, query(), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMALGS_EX, room(87), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMALGS, room(32), CRYPT_NEXT);
    recorder.note("nowhere to put it: nothing is used up");
    csp.getProvParam(PP_ENUMALGS, nowhere(), CRYPT_FIRST);
    csp.getProvParam(PP_ENUMALGS, room(32), CRYPT_NEXT);
}

TEST_F(ProviderParamsTranscript, ContainersAreEnumerated)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    openOwnContainer();
    csp.getProvParam(PP_ENUMCONTAINERS, room(40), CRYPT_FIRST);
    errorsAlone();
    csp.getProvParam(PP_ENUMCONTAINERS, room(33), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMCONTAINERS, room(33), CRYPT_NEXT);
    csp.getProvParam(PP_ENUMCONTAINERS, room(33));
}

TEST_F(ProviderParamsTranscript, KeySpecComesFromTheUsageOfTheKeyThatTheContainerNames)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    openOwnContainer(usageKeyExchange);
    csp.getProvParam(PP_KEYSPEC, room(4));
    errorsAlone();
    token.keyPairs.back().usage = 4;
    csp.getProvParam(PP_KEYSPEC, room(4));
    token.keyPairs.pop_back();
    csp.getProvParam(PP_KEYSPEC, room(4));
    recorder.note("no container is no name for all");
    open();
    csp.getProvParam(PP_KEYSPEC, room(4));
}

TEST_F(ProviderParamsTranscript, UnknownOnesAreRefusedAndKnownOnesNeedALength)
{
    open();
    csp.getProvParam(7, nowhere());
    csp.getProvParam(PP_CONTAINER, nowhere());
    errorsAlone();
    for (const DWORD parameter : {0, 35, 41}) csp.getProvParam(parameter, nowhere());
    csp.getProvParam(PP_CERTCHAIN, nowhere());
    csp.getProvParam(PP_KEYSPEC, nowhere());
    csp.setProvParam(PP_ADMIN_PIN, bytesOfText("1234"));
    csp.setProvParam(PP_NAME, CspCalls::null);
}

TEST_F(ProviderParamsTranscript, GivenPINIsCheckedAndKeptOnlyIfItIsRight)
{
    open();
    csp.setProvParam(PP_SIGNATURE_PIN, CspCalls::null);
    csp.setProvParam(PP_SIGNATURE_PIN, bytesOfText("1234"));
    token.willAnswer(Call::validatePassword, 48);
    csp.setProvParam(PP_KEYEXCHANGE_PIN, bytesOfText("another"));
    recorder.note("cached is \"" + cachedPin() + "\"");
    csp.setProvParam(PP_KEYEXCHANGE_PIN, bytesOfText("1234"));
}

TEST_F(ProviderParamsTranscript, WindowAndRandomNumberSwitchAreTakenAndTakenBack)
{
    open();
    csp.setProvParam(PP_CLIENT_HWND, littleEndian({0x11223344, 0}));
    csp.setProvParam(PP_CLIENT_HWND, CspCalls::null);
    csp.setProvParam(PP_USE_HARDWARE_RNG, littleEndian({0}));
    csp.getProvParam(PP_USE_HARDWARE_RNG, room(4));
    csp.setProvParam(PP_USE_HARDWARE_RNG, littleEndian({0x500}));
    csp.setProvParam(PP_USE_HARDWARE_RNG, CspCalls::null);
    csp.getProvParam(PP_USE_HARDWARE_RNG, room(4));
}

TEST_F(ProviderParamsTranscript, AtLevelTwoErrorsAlone)
{
    open();
    errorsAlone();
    csp.getProvParam(99, room(4));
    csp.getProvParam(PP_IMPTYPE, room(4));
    csp.setProvParam(PP_SIGNATURE_PIN, CspCalls::null);
    csp.setProvParam(PP_SIGNATURE_PIN, bytesOfText("wrong"));
    csp.setProvParam(PP_USE_HARDWARE_RNG, CspCalls::null);
}

} // namespace quelta::test
