#include "csp/csp_scenario.h"

#include "support/machine_registry.h"

namespace quelta::test {

class KeysTranscript : public CspScenario {
protected:
    void readAll(HCRYPTKEY key)
    {
        for (const DWORD parameter : {KP_PERMISSIONS, KP_ALGID, KP_BLOCKLEN, KP_KEYLEN}) csp.getKeyParam(key, parameter, room(8));
    }
};

TEST_F(KeysTranscript, KeySpecMustSuitTheUsage)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    openContainerOf(pair);
    csp.getUserKey(AT_SIGNATURE);
    csp.getUserKey(AT_KEYEXCHANGE);
    pair.usage = usageKeyExchange;
    csp.getUserKey(AT_SIGNATURE);
    csp.getUserKey(AT_KEYEXCHANGE);
    pair.usage = usageBoth;
    csp.getUserKey(AT_SIGNATURE);
    csp.getUserKey(AT_KEYEXCHANGE);
}

TEST_F(KeysTranscript, OnceTheContainersNameWasAskedForTheUsageAloneDecides)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    openContainerOf(pair);
    csp.getProvParam(PP_UNIQUE_CONTAINER, query());
    csp.getUserKey(AT_KEYEXCHANGE);
    pair.usage = usageKeyExchange;
    csp.getUserKey(AT_SIGNATURE);
    pair.usage = usageBoth;
    csp.getUserKey(AT_KEYEXCHANGE);
    pair.usage = 4;
    csp.getUserKey(AT_KEYEXCHANGE);
}

TEST_F(KeysTranscript, WithoutAContainerTheFirstThatSuitsIsTaken)
{
    open();
    csp.getUserKey(AT_SIGNATURE);
    token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    token.withKeyPair(usageSigning, algorithmP384);
    token.withKeyPair(usageBoth, algorithmRsa4096);
    csp.getUserKey(0);
    readAll(csp.getUserKey(AT_SIGNATURE));
    errorsAlone();
    auto& third = token.keyPairs[2];
    setText(third.label, "my key");
    third.hardware = 1;
    openContainerOf(third);
    noteKey(csp.getUserKey(AT_KEYEXCHANGE));
    recorder.note("the name is compared exactly");
    std::ranges::fill(third.keyId, static_cast<unsigned char>(0xAB));
    for (const char* name : {"abababababababababababababababab", "ABABABABABABABABABABABABABABABA"}) {
        open(name);
        csp.getUserKey(AT_SIGNATURE);
    }
}

TEST_F(KeysTranscript, EveryKeyTypeHasItsSizeAndAlgorithm)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    open();
    errorsAlone();
    for (const std::uint32_t type : {1, 3, 5, 6, 7, 0, 8}) {
        pair.algorithm = type;
        const HCRYPTKEY key = userKey();
        recorder.note("key type " + std::to_string(type));
        csp.getKeyParam(key, KP_ALGID, room(4));
        csp.getKeyParam(key, KP_KEYLEN, room(4));
    }
}

TEST_F(KeysTranscript, ShortBuffersOfParameters)
{
    token.withCertificateOf(token.withKeyPair(usageBoth, algorithmRsa3072), counting(300));
    open();
    const HCRYPTKEY key = userKey();
    for (const Place& place : {query(2), room(0), room(2)}) csp.getKeyParam(key, KP_ALGID, place);
    csp.getKeyParam(key, KP_ALGID, nowhere());
    csp.getKeyParam(key, KP_MODE, nowhere());
    errorsAlone();
    for (const DWORD parameter : {KP_PERMISSIONS, KP_BLOCKLEN, KP_KEYLEN, KP_CERTIFICATE}) {
        for (const Place& place : {query(2), room(0), room(2)}) csp.getKeyParam(key, parameter, place);
    }
}

TEST_F(KeysTranscript, CertificateIsFoundByLabelThenByReferenceAndTheFirstWins)
{
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa2048);
    setText(pair.label, "my key");
    open();
    const HCRYPTKEY key = userKey();
    csp.getKeyParam(key, KP_CERTIFICATE, query(7));
    setText(token.withCertificate(Bytes{1}).label, "my key 2");
    setReference(token.withCertificate(Bytes{2}), keyReferenceOf(pair));
    setText(token.withCertificate(Bytes{3}).label, "my key");
    recorder.note("whether the device opens is not looked at");
    token.willAnswer(Call::initDevice, 5);
    csp.getKeyParam(key, KP_CERTIFICATE, room(4));
    token.certificates.erase(token.certificates.begin() + 1);
    csp.getKeyParam(key, KP_CERTIFICATE, room(4));
}

TEST_F(KeysTranscript, GeneratedKeyIsWhatTheTokenMadeAndTheSizeIsOnlyWrittenDown)
{
    open();
    cachePin();
    token.onGenerate = [](QueltaKeyPair& made) {
        made.usage = usageBoth;
        made.hardware = 1;
        setReference(made, counting(128));
        std::ranges::fill(made.label, 'L');
    };
    noteKey(csp.genKey(CALG_RSA_SIGN));
    noteKey(csp.genKey(CALG_RSA_KEYX, 0x04000001));
}

TEST_F(KeysTranscript, GenerationIsRefusedForOtherAlgorithmsWithoutPINAndByTheToken)
{
    open();
    csp.genKey(AT_SIGNATURE);
    csp.genKey(CALG_AES_128);
    user.cancels();
    csp.genKey(CALG_RSA_SIGN);
    cachePin();
    token.willAnswer(Call::generateKeyPair, 33);
    csp.genKey(CALG_RSA_KEYX);
}

TEST_F(KeysTranscript, VectorIsTakenFromKeysThatHaveOneAndAllElseIsAcceptedAndDropped)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    const HCRYPTKEY aes256 = sessionKey(CALG_AES_256, Bytes(32, 1)), aes128 = sessionKey(CALG_AES_128, Bytes(16, 1));
    const HCRYPTKEY tripleDes = sessionKey(CALG_3DES, Bytes(24, 1));
    const auto set = [this](HCRYPTKEY key, const Input& iv) {
        csp.setKeyParam(key, KP_IV, iv, 5);
        recorder.note("the vector is " + words(*tokenState().sharedIv.bytes()));
    };
    set(aes128, counting(16));
    set(aes256, counting(16));
    set(tripleDes, counting(8, 0x40));
    errorsAlone();
    set(userKey(), CspCalls::null);
    set(aes256, CspCalls::null);
    everyLine();
    csp.setKeyParam(aes256, KP_PADDING, littleEndian({77}));
    csp.setKeyParam(aes256, 0xFFFF, CspCalls::null);
    csp.destroyKey(aes256);
}

TEST_F(KeysTranscript, AtLevelTwoErrorsAlone)
{
    token.withKeyPair(usageBoth, algorithmRsa2048);
    open();
    cachePin();
    const HCRYPTKEY key = userKey();
    setLogLevel(2);
    csp.getUserKey(0);
    csp.genKey(CALG_AES_128);
    token.willAnswer(Call::generateKeyPair, 33);
    csp.genKey(CALG_RSA_SIGN);
    for (const DWORD parameter : {KP_ALGID, KP_CERTIFICATE, KP_MODE}) csp.getKeyParam(key, parameter, room(2));
}

} // namespace quelta::test
