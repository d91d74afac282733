#include "csp/csp_scenario.h"

#include "csp/context.h"

namespace quelta::test {

// In which order arguments are looked at shows where all of them are wrong.
class RefusalsTranscript : public CspScenario {
protected:
    RefusalsTranscript()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048);
        open();
    }
    void withKeyAndHash(HCRYPTKEY key, HCRYPTHASH hash)
    {
        csp.getKeyParam(key, KP_ALGID, room(4));
        csp.setKeyParam(key, KP_PADDING, Bytes(4));
        csp.destroyKey(key);
        csp.exportKey(key, PUBLICKEYBLOB, room(300));
        csp.hashData(hash, Bytes{1});
        csp.getHashParam(hash, HP_HASHVAL, room(32));
        csp.setHashParam(hash, HP_HASHVAL, Bytes(32));
        csp.duplicateHash(hash);
        csp.destroyHash(hash);
        csp.signHash(hash);
        csp.verifySignature(hash, Bytes(256), key);
        csp.encrypt(key, Bytes{1});
        csp.decrypt(key);
    }
};

TEST_F(RefusalsTranscript, WithAContextThatWasNeverMadeReadyAndWithNoneAndWithoutAKeyOrAHash)
{
    CspContext unready;
    const HCRYPTKEY key = userKey();
    const HCRYPTHASH hash = newHash();
    const HCRYPTPROV opened = std::exchange(csp.context, reinterpret_cast<HCRYPTPROV>(&unready));
    recorder.introduce("unready", csp.context);
    csp.release();
    csp.getProvParam(PP_VERSION, room(4));
    csp.setProvParam(PP_SIGNATURE_PIN, bytesOfText("1234"));
    csp.genKey(CALG_RSA_SIGN);
    csp.getUserKey(AT_SIGNATURE);
    csp.importKey(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20)));
    csp.createHash(CALG_SHA1);
    csp.genRandom(room(8));
    withKeyAndHash(key, hash);
    csp.context = 0;
    csp.release();
    csp.getUserKey(AT_SIGNATURE);
    csp.createHash(CALG_SHA1);
    csp.getHashParam(hash, HP_HASHVAL, room(32));
    csp.setHashParam(hash, HP_HASHVAL, Bytes(32));
    csp.duplicateHash(hash);
    csp.context = opened;
    errorsAlone();
    withKeyAndHash(0, 0);
}

TEST_F(RefusalsTranscript, WithEverythingWrongAtOnce)
{
    const std::pair<const char*, std::function<BOOL()>> calls[] = {
        {"CPAcquireContext", [] { return CPAcquireContext(nullptr, nullptr, 0xFFFF, nullptr); }},
        {"CPReleaseContext", [] { return CPReleaseContext(0, 1); }},
        {"CPGetProvParam", [] { return CPGetProvParam(0, 99, nullptr, nullptr, 9); }},
        {"CPSetProvParam", [] { return CPSetProvParam(0, 99, nullptr, 9); }},
        {"CPGenKey", [] { return CPGenKey(0, 99, 9, nullptr); }},
        {"CPGetUserKey", [] { return CPGetUserKey(0, 99, nullptr); }},
        {"CPGetKeyParam", [] { return CPGetKeyParam(0, 0, 99, nullptr, nullptr, 9); }},
        {"CPSetKeyParam", [] { return CPSetKeyParam(0, 0, 99, nullptr, 9); }},
        {"CPDestroyKey", [] { return CPDestroyKey(0, 0); }},
        {"CPImportKey", [] { return CPImportKey(0, nullptr, 0xFFFFFFFF, 0, 9, nullptr); }},
        {"CPExportKey", [] { return CPExportKey(0, 0, 0, 99, 9, nullptr, nullptr); }},
        {"CPCreateHash", [] { return CPCreateHash(0, 99, 0, 9, nullptr); }},
        {"CPHashData", [] { return CPHashData(0, 0, nullptr, 9, 9); }},
        {"CPGetHashParam", [] { return CPGetHashParam(0, 0, 99, nullptr, nullptr, 9); }},
        {"CPSetHashParam", [] { return CPSetHashParam(0, 0, 99, nullptr, 9); }},
        {"CPDuplicateHash", [] { return CPDuplicateHash(0, 0, nullptr, 9, nullptr); }},
        {"CPDestroyHash", [] { return CPDestroyHash(0, 0); }},
        {"CPHashSessionKey", [] { return CPHashSessionKey(0, 0, 0, 9); }},
        {"CPSignHash", [] { return CPSignHash(0, 0, 99, nullptr, 9, nullptr, nullptr); }},
        {"CPVerifySignature", [] { return CPVerifySignature(0, 0, nullptr, 9, 0, nullptr, 9); }},
        {"CPEncrypt", [] { return CPEncrypt(0, 0, 0, FALSE, 9, nullptr, nullptr, 0); }},
        {"CPDecrypt", [] { return CPDecrypt(0, 0, 0, FALSE, 9, nullptr, nullptr); }},
        {"CPGenRandom", [] { return CPGenRandom(0, 0, nullptr); }},
        {"CPDeriveKey", [] { return CPDeriveKey(0, 99, 0, 9, nullptr); }}};
    for (const auto& [name, call] : calls) csp.call(name, "all wrong", call);
}

} // namespace quelta::test
