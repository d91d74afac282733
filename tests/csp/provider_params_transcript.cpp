#include "csp/csp_scenario.h"

#include "csp/context.h"
#include "csp/output.h"

namespace quelta::test {

class ProviderParamsTranscript : public CspScenario {
protected:
    ProviderParamsTranscript()
    {
        token.withKeyPair(usageSigning, algorithmRsa2048);
        openContainerOf(own);
    }

    QueltaKeyPair& own = token.withKeyPair(usageBoth, algorithmRsa2048);
};

TRANSCRIPT(ProviderParamsTranscript, "both forms of the algorithm enumeration share one position")
{
    csp("CPGetProvParam", {PP_ENUMALGS, room(32)});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, room(88), CRYPT_FIRST | CRYPT_NEXT});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, room(88), CRYPT_FIRST});
    csp("CPGetProvParam", {PP_ENUMALGS, room(32), CRYPT_FIRST});
    errorsAlone();
    for (int i = 0; i < 3; ++i) csp("CPGetProvParam", {PP_ENUMALGS, room(32), CRYPT_NEXT});
    recorder.note("nowhere to put it: nothing is used up");
    csp("CPGetProvParam", {PP_ENUMALGS, nowhere(), CRYPT_FIRST});
    everyLine();
    csp("CPGetProvParam", {PP_ENUMALGS, room(32), CRYPT_NEXT});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, room(88), CRYPT_NEXT});
    errorsAlone();
    recorder.note("a size query uses up an item");
    csp("CPGetProvParam", {PP_ENUMALGS, query(), CRYPT_FIRST});
    for (int i = 0; i < 3; ++i) csp("CPGetProvParam", {PP_ENUMALGS_EX, i == 1 ? query() : room(88), CRYPT_NEXT});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, room(88), CRYPT_FIRST});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, query(), CRYPT_NEXT});
    csp("CPGetProvParam", {PP_ENUMALGS_EX, room(88), CRYPT_NEXT});
}

TRANSCRIPT(ProviderParamsTranscript, "the containers are those of the opening, and the usage decides the key spec")
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    csp("CPGetProvParam", {PP_ENUMCONTAINERS, room(40), CRYPT_FIRST});
    errorsAlone();
    for (int i = 0; i < 2; ++i) csp("CPGetProvParam", {PP_ENUMCONTAINERS, room(33), CRYPT_NEXT});
    csp("CPGetProvParam", {PP_ENUMCONTAINERS, room(33)});
    for (const std::uint32_t usage : {1, 2, 4}) {
        own.usage = usage;
        csp("CPGetProvParam", {PP_KEYSPEC, room(4)});
    }
    recorder.note("no container is no name for all");
    open();
    csp("CPGetProvParam", {PP_KEYSPEC, room(4)});
}

TRANSCRIPT(ProviderParamsTranscript, "a given PIN is checked, and kept only if it is right")
{
    csp("CPSetProvParam", {PP_SIGNATURE_PIN, bytesOfText("1234")});
    token.pin = "123456";
    csp("CPSetProvParam", {PP_KEYEXCHANGE_PIN, bytesOfText("123456")});
    recorder.note("cached is \"" + cachedPin() + "\"");
    errorsAlone();
    csp("CPSetProvParam", {PP_SIGNATURE_PIN, bytesOfText("wrong")});
    csp("CPSetProvParam", {PP_SIGNATURE_PIN, CspCalls::null});
    recorder.note("cached is \"" + cachedPin() + "\"");
}

TRANSCRIPT(ProviderParamsTranscript, "only the PIN, the window and the random number switch can be set")
{
    csp("CPSetProvParam", {PP_USE_HARDWARE_RNG, littleEndian({0})});
    csp("CPGetProvParam", {PP_USE_HARDWARE_RNG, room(4)});
    csp("CPSetProvParam", {PP_USE_HARDWARE_RNG, littleEndian({0x500})});
    csp("CPSetProvParam", {PP_USE_HARDWARE_RNG, CspCalls::null});
    for (const DWORD parameter : {7, PP_CONTAINER}) csp("CPGetProvParam", {parameter, nowhere()});
    errorsAlone();
    for (const DWORD parameter : {0, 35, 41}) csp("CPGetProvParam", {parameter, room(4)});
    for (const Input& window : {Input(littleEndian({0x11223344, 0x55667788})), Input()}) {
        csp("CPSetProvParam", {PP_CLIENT_HWND, window});
        recorder.note("the window is " + toHex(bytesOf(contextOf(csp.context)->ownerWindow)));
    }
    csp("CPSetProvParam", {PP_ADMIN_PIN, bytesOfText("1234")});
    csp("CPSetProvParam", {PP_NAME, CspCalls::null});
}

} // namespace quelta::test
