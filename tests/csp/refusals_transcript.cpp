#include "csp/csp_scenario.h"

#include "csp/context.h"
#include "csp/entry_points.h"

#include <new>
#include <stdexcept>

namespace quelta::test {

// In which order arguments are looked at shows where all of them are wrong.
class RefusalsTranscript : public CspScenario {
protected:
    void everything()
    {
        if (csp.context != 0) csp.release();
        csp.getProvParam(PP_VERSION, room(4));
        csp.setProvParam(PP_SIGNATURE_PIN, bytesOfText("1234"));
        csp.genKey(CALG_RSA_SIGN);
        csp.getUserKey(AT_SIGNATURE);
        csp.getKeyParam(key, KP_ALGID, room(4));
        csp.setKeyParam(key, KP_PADDING, Bytes(4));
        csp.destroyKey(key);
        csp.importKey(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20)));
        csp.exportKey(key, PUBLICKEYBLOB, room(300));
        csp.createHash(CALG_SHA1);
        csp.hashData(hash, Bytes{1});
        csp.getHashParam(hash, HP_HASHVAL, room(32));
        csp.setHashParam(hash, HP_HASHVAL, Bytes(32));
        csp.duplicateHash(hash);
        csp.destroyHash(hash);
        csp.hashSessionKey(hash, key);
        csp.signHash(hash, AT_SIGNATURE, room(256));
        csp.verifySignature(hash, Bytes(256), key);
        csp.encrypt(key, Bytes{1}, 256);
        csp.decrypt(key, Bytes(256));
        csp.genRandom(room(8));
        csp.deriveKey(CALG_AES_128, hash);
    }

    HCRYPTKEY key = 0;
    HCRYPTHASH hash = 0;
};

TEST_F(RefusalsTranscript, WithoutAContext)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    key = userKey();
    hash = newHash();
    const HCRYPTPROV opened = std::exchange(csp.context, 0);
    everything();
    csp.context = opened;
}

TEST_F(RefusalsTranscript, WithAContextThatWasNeverMadeReady)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    key = userKey();
    hash = newHash();
    CspContext unready;
    const HCRYPTPROV opened = std::exchange(csp.context, reinterpret_cast<HCRYPTPROV>(&unready));
    recorder.introduce("unready", csp.context);
    everything();
    csp.context = opened;
}

TEST_F(RefusalsTranscript, WithoutAKeyOrAHash)
{
    open();
    csp.getKeyParam(0, KP_ALGID, room(4));
    csp.setKeyParam(0, KP_PADDING, Bytes(4));
    csp.destroyKey(0);
    csp.exportKey(0, PUBLICKEYBLOB, room(300));
    csp.hashData(0, Bytes{1});
    csp.getHashParam(0, HP_HASHVAL, room(32));
    csp.setHashParam(0, HP_HASHVAL, Bytes(32));
    csp.duplicateHash(0);
    csp.destroyHash(0);
    csp.signHash(0, AT_SIGNATURE, room(256));
    csp.verifySignature(0, Bytes(256));
    csp.encrypt(0, Bytes{1}, 256);
    csp.decrypt(0, Bytes(256));
}

TEST_F(RefusalsTranscript, WithEverythingWrongAtOnce)
{
    const auto refused = [this](const char* name, const std::function<BOOL()>& call) { csp.call(name, "all wrong", call); };
    refused("CPAcquireContext", [] { return CPAcquireContext(nullptr, nullptr, 0xFFFF, nullptr); });
    refused("CPReleaseContext", [] { return CPReleaseContext(0, 1); });
    refused("CPGetProvParam", [] { return CPGetProvParam(0, 99, nullptr, nullptr, 9); });
    refused("CPSetProvParam", [] { return CPSetProvParam(0, 99, nullptr, 9); });
    refused("CPGenKey", [] { return CPGenKey(0, 99, 9, nullptr); });
    refused("CPGetUserKey", [] { return CPGetUserKey(0, 99, nullptr); });
    refused("CPGetKeyParam", [] { return CPGetKeyParam(0, 0, 99, nullptr, nullptr, 9); });
    refused("CPSetKeyParam", [] { return CPSetKeyParam(0, 0, 99, nullptr, 9); });
    refused("CPDestroyKey", [] { return CPDestroyKey(0, 0); });
    refused("CPImportKey", [] { return CPImportKey(0, nullptr, 0xFFFFFFFF, 0, 9, nullptr); });
    refused("CPExportKey", [] { return CPExportKey(0, 0, 0, 99, 9, nullptr, nullptr); });
    refused("CPCreateHash", [] { return CPCreateHash(0, 99, 0, 9, nullptr); });
    refused("CPHashData", [] { return CPHashData(0, 0, nullptr, 9, 9); });
    refused("CPGetHashParam", [] { return CPGetHashParam(0, 0, 99, nullptr, nullptr, 9); });
    refused("CPSetHashParam", [] { return CPSetHashParam(0, 0, 99, nullptr, 9); });
    refused("CPDuplicateHash", [] { return CPDuplicateHash(0, 0, nullptr, 9, nullptr); });
    refused("CPDestroyHash", [] { return CPDestroyHash(0, 0); });
    refused("CPHashSessionKey", [] { return CPHashSessionKey(0, 0, 0, 9); });
    refused("CPSignHash", [] { return CPSignHash(0, 0, 99, nullptr, 9, nullptr, nullptr); });
    refused("CPVerifySignature", [] { return CPVerifySignature(0, 0, nullptr, 9, 0, nullptr, 9); });
    refused("CPEncrypt", [] { return CPEncrypt(0, 0, 0, FALSE, 9, nullptr, nullptr, 0); });
    refused("CPDecrypt", [] { return CPDecrypt(0, 0, 0, FALSE, 9, nullptr, nullptr); });
    refused("CPGenRandom", [] { return CPGenRandom(0, 0, nullptr); });
    refused("CPDeriveKey", [] { return CPDeriveKey(0, 99, 0, 9, nullptr); });
}

TEST_F(RefusalsTranscript, LibraryThatThrowsIsAFailureThatHandsOutNothing)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    key = userKey();
    hash = newHash();
    token.openSingleSignOn();
    errorsAlone();
    const auto throwing = [this](Call call) {
        token.during(call, [] { throw std::runtime_error("the library is in trouble"); });
    };
    throwing(Call::getConnectedDeviceList);
    csp.acquire();
    throwing(Call::generateKeyPair);
    csp.genKey(CALG_RSA_SIGN);
    throwing(Call::initHash);
    csp.createHash(CALG_SHA1);
    csp.duplicateHash(hash);
    throwing(Call::importAesKey);
    csp.importKey(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20)));
    throwing(Call::finalHash);
    csp.signHash(hash, AT_SIGNATURE, room(256));
    token.during(Call::decrypt, [] { throw 5; });
    csp.decrypt(key, counting(256));
    token.during(Call::getKeyPairList, [] { throw std::bad_alloc(); });
    csp.getUserKey(AT_SIGNATURE);
    csp.exportKey(key, PUBLICKEYBLOB, query());
    csp.getProvParam(PP_CERTCHAIN, room(9));
}

} // namespace quelta::test
