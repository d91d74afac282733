#include "csp/csp_scenario.h"

#include "csp/context.h"

namespace quelta::test {

class RefusalsTranscript : public CspScenario {
protected:
    RefusalsTranscript()
    {
        token.withCertificateOf(token.withKeyPair(usageBoth, algorithmRsa2048), counting(9));
        open();
        cachePin();
    }
    // Returns arguments with which each entry point succeeds.
    CspCalls::Rows rows()
    {
        const HCRYPTKEY key = userKey();
        const HCRYPTHASH hash = finishedHash();
        const Bytes blob = concat({Bytes{PLAINTEXTKEYBLOB, 2, 0, 0}, littleEndian({CALG_AES_128, 16}), counting(16)});
        return {{"CPAcquireContext", {"a name"}},
                {"CPReleaseContext", {}},
                {"CPGetProvParam", {PP_VERSION, room(4)}},
                {"CPSetProvParam", {PP_SIGNATURE_PIN, bytesOfText("1234")}},
                {"CPGenKey", {CALG_RSA_SIGN}},
                {"CPGetUserKey", {AT_SIGNATURE}},
                {"CPGetKeyParam", {key, KP_CERTIFICATE, room(9)}},
                {"CPSetKeyParam", {key, KP_PADDING, Bytes(4)}},
                {"CPDestroyKey", {key}},
                {"CPImportKey", {blob, key}},
                {"CPExportKey", {key, PUBLICKEYBLOB, 0, room(276)}},
                {"CPCreateHash", {CALG_SHA1}},
                {"CPHashData", {hash, Bytes{1}}},
                {"CPGetHashParam", {hash, HP_HASHVAL, room(32)}},
                {"CPSetHashParam", {hash, HP_HASHVAL, Bytes(32)}},
                {"CPDuplicateHash", {hash}},
                {"CPDestroyHash", {hash}},
                {"CPSignHash", {hash, AT_SIGNATURE, 0, room(256)}},
                {"CPVerifySignature", {hash, Bytes(256), key}},
                {"CPEncrypt", {key, 0, InPlace{Bytes{1}, 256}}},
                {"CPDecrypt", {key, 0, InPlace{counting(256), 0}}},
                {"CPGenRandom", {room(8)}}};
    }
};

TRANSCRIPT(RefusalsTranscript, "one argument is missing, or longer than the token can count")
{
    csp.leaveOutEach(rows());
    const Place tooLong{1, 0x80000000};
    csp.signHash(finishedHash(), tooLong);
    csp.signHash(finishedHash(), query(0x80000000));
    for (const char* name : {"CPEncrypt", "CPDecrypt"}) csp(name, {userKey(), 0, tooLong});
}

TRANSCRIPT(RefusalsTranscript, "everything is missing, or all but a context")
{
    csp.callEach("nothing but flags", ".*", {});
    csp.callEach("a context and flags", "P.*[A-Z].*", {csp.context});
}

TRANSCRIPT(RefusalsTranscript, "the context was never made ready")
{
    CspContext unready;
    const auto all = rows();
    const HCRYPTPROV ready = std::exchange(csp.context, addressOf(&unready));
    recorder.introduce("unready", csp.context);
    for (const auto& [name, stated] : all) csp(name, stated);
    csp.context = ready;
}

} // namespace quelta::test
