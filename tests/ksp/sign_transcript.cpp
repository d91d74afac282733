#include "ksp/ksp_scenario.h"

namespace quelta::test {

class KspSignTranscript : public KspScenario {
protected:
    KspSignTranscript() { open(); }

    NCRYPT_KEY_HANDLE keyOf(std::uint32_t algorithm) { return opened(token.withKeyPair(usageSigning, algorithm)); }
    void signAll(NCRYPT_KEY_HANDLE key, DWORD flags, std::initializer_list<Place> places)
    {
        for (const Place& place : places) ksp.signHash(key, counting(32), place, flags);
    }
};

TEST_F(KspSignTranscript, SignatureStaysAsTheTokenGivesIt)
{
    const auto key = keyOf(algorithmRsa2048);
    token.signature.bytes = counting(256);
    token.openSingleSignOn();
    BYTE info = 0;
    ksp.signHash(key, counting(32), room(300), BCRYPT_PAD_PKCS1, {"a padding", &info});
    errorsAlone();
    cachePin();
    signAll(key, NCRYPT_SILENT_FLAG, {room(256)});
}

TEST_F(KspSignTranscript, SizeIsTheKeysAndOfACurveHalfOfWhatTheTokenGives)
{
    const auto curve = keyOf(algorithmP521);
    ksp.signHash(curve, KspCalls::null, query(7));
    cachePin();
    errorsAlone();
    token.signature.bytes = counting(132);
    signAll(curve, 0, {room(64), room(140)});
    signAll(keyOf(algorithmRsa3072), BCRYPT_PAD_PSS, {query(), room(383)});
}

TEST_F(KspSignTranscript, ImpossibleInputIsRefusedBeforeThePINIsAskedFor)
{
    const auto key = keyOf(algorithmRsa1024);
    token.openSingleSignOn();
    for (const Input& hash : {Input(), Input(Bytes())}) ksp.signHash(key, hash, room(1));
    signAll(key, 0, {room(127), Place{1, 0x80000000}});
    recorder.note("an open sign-on does not count");
    signAll(key, NCRYPT_SILENT_FLAG | BCRYPT_PAD_PSS, {room(128)});
}

TEST_F(KspSignTranscript, PSSIsRefusedOnlyAfterThePINWasAskedFor)
{
    const auto key = keyOf(algorithmRsa1024);
    errorsAlone();
    user.cancels();
    signAll(key, BCRYPT_PAD_PSS, {room(128)});
    user.entersPin("1234");
    signAll(key, BCRYPT_PAD_PSS, {room(128)});
    signAll(key, BCRYPT_PAD_PSS | BCRYPT_PAD_PKCS1, {room(128)});
}

TEST_F(KspSignTranscript, ExpiredSignOnIsRenewedOnce)
{
    const auto key = keyOf(algorithmRsa1024);
    cachePin("old pin");
    token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    signAll(key, 0, {room(128)});
    errorsAlone();
    for (int i = 0; i < 3; ++i) token.willAnswer(Call::signHash, 49);
    user.entersPin("1234");
    user.cancels();
    signAll(key, 0, {room(128), room(128)});
    recorder.note("no PIN is left");
    signAll(key, NCRYPT_SILENT_FLAG, {room(128)});
}

TEST_F(KspSignTranscript, SignatureIsVerifiedWithTheKeysAlgorithmAndItsPublicKeyInDER)
{
    const auto rsa = keyOf(algorithmRsa3072), curve = keyOf(algorithmP384);
    BYTE info = 0;
    ksp.verifySignature(rsa, counting(32), counting(384), BCRYPT_PAD_PSS, {"a padding", &info});
    ksp.verifySignature(curve, counting(48), counting(96));
}

TEST_F(KspSignTranscript, NothingIsVerifiedWithoutHashSignatureAndKey)
{
    const auto key = keyOf(algorithmRsa1024);
    for (const Input& missing : {Input(), Input(Bytes())}) {
        ksp.verifySignature(key, missing, Bytes{1});
        ksp.verifySignature(key, Bytes{1}, missing);
    }
    setPublicKey(token.keyPairs[0], {});
    ksp.verifySignature(opened(token.keyPairs[0]), Bytes{1}, Bytes{2});
}

TEST_F(KspSignTranscript, AtLevelTwoErrorsAlone)
{
    const auto key = keyOf(algorithmRsa1024);
    cachePin();
    errorsAlone();
    recorder.note("lengths that can't be are failures");
    for (const int reported : {-1, 129}) {
        token.signature = {.bytes = Bytes{}, .reportedLength = reported};
        signAll(key, 0, {room(128)});
    }
    token.willAnswer(Call::signHash, 17);
    signAll(key, 0, {room(128)});
    token.willAnswer(Call::verifySignatureHash, 49);
    ksp.verifySignature(key, Bytes{1}, Bytes{2});
}

} // namespace quelta::test
