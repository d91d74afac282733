#include "csp/csp_calls.h"
#include "ksp/ksp_scenario.h"

namespace quelta::test {

// Each of the two interfaces open in one process, with the same key.
class BothProvidersTranscript : public KspScenario {
protected:
    CspCalls csp{recorder};
};

TEST_F(BothProvidersTranscript, TokenIsOpenedOnceAndPINAndVectorAreShared)
{
    token.withKeyPair(usageBoth, algorithmRsa1024);
    errorsAlone();
    ksp.openProvider();
    csp.acquire(nullptr);
    user.entersPin("1234");
    ksp.promptUser(0, nullptr);
    NCRYPT_KEY_HANDLE clear = 0;
    HCRYPTKEY session = 0;
    {
        const Recorder::Pause pause(recorder);
        clear = clearKey(counting(16));
        token.plain.bytes = counting(32);
        const Bytes blob = concat({littleEndian({CALG_RSA_KEYX}), Bytes(128)});
        session = csp.importKey(keyBlob(SIMPLEBLOB, CALG_AES_256, blob), csp.getUserKey(AT_KEYEXCHANGE));
    }
    ksp.setKeyProperty(clear, L"IV", counting(16, 0xA0));
    csp.decrypt(session, Bytes(32));
    csp.setKeyParam(session, KP_IV, counting(16, 0xB0));
    ksp.decrypt(clear, Bytes(32), room(32));
}

} // namespace quelta::test
