#include "ksp/ksp_scenario.h"

namespace quelta::test {

class KspCryptTranscript : public KspScenario {
protected:
    KspCryptTranscript() { open(); }

    NCRYPT_KEY_HANDLE keyOf(std::uint32_t algorithm) { return opened(token.withKeyPair(usageBoth, algorithm)); }
    void encryptAll(NCRYPT_KEY_HANDLE key, DWORD flags, std::initializer_list<Place> places)
    {
        for (const Place& place : places) ksp.encrypt(key, Bytes{1, 2, 3}, place, flags);
    }
    void decryptAll(NCRYPT_KEY_HANDLE key, DWORD flags, std::initializer_list<Place> places)
    {
        for (const Place& place : places) ksp.decrypt(key, counting(32, 0x80), place, flags);
    }
};

TEST_F(KspCryptTranscript, DataIsEncryptedWithTheKeyInDER)
{
    const auto key = keyOf(algorithmRsa2048);
    ksp.encrypt(key, KspCalls::null, query(7));
    token.openSingleSignOn();
    BYTE info = 0;
    ksp.encrypt(key, Bytes{1, 2, 3}, room(300), NCRYPT_PAD_PKCS1_FLAG, {"a padding", &info});
    encryptAll(keyOf(algorithmP256), 0, {room(256)});
    errorsAlone();
    recorder.note("a cipher that is longer than the key has no room");
    token.cipher.bytes = counting(1024);
    encryptAll(key, 0, {room(300)});
}

TEST_F(KspCryptTranscript, SizeAndPaddingAreToldByTheirNumbers)
{
    cachePin();
    errorsAlone();
    token.cipher.bytes = counting(3, 0xC1);
    encryptAll(keyOf(algorithmRsa1024), NCRYPT_PAD_OAEP_FLAG, {room(128)});
    encryptAll(keyOf(algorithmRsa2048), NCRYPT_SILENT_FLAG, {room(256)});
    encryptAll(keyOf(algorithmRsa3072), NCRYPT_PAD_OAEP_FLAG | NCRYPT_PAD_PKCS1_FLAG, {room(384)});
    encryptAll(keyOf(algorithmRsa4096), BCRYPT_PAD_PSS, {room(512)});
    encryptAll(keyOf(algorithmP384), 0, {room(48)});
}

TEST_F(KspCryptTranscript, ImpossibleInputIsRefusedBeforeThePINIsAskedFor)
{
    const auto key = keyOf(algorithmRsa1024), symmetric = clearKey(counting(16));
    token.openSingleSignOn();
    ksp.encrypt(key, KspCalls::null, room(127));
    for (const Input& data : {Input(), Input(Bytes())}) {
        ksp.encrypt(key, data, room(128));
        ksp.decrypt(key, data, room(128));
        ksp.decrypt(symmetric, data, query());
    }
    ksp.decrypt(key, KspCalls::null, query());
    recorder.note("an open sign-on does not count");
    encryptAll(key, NCRYPT_SILENT_FLAG, {room(128)});
    for (const auto handle : {key, symmetric}) decryptAll(handle, NCRYPT_SILENT_FLAG, {room(128)});
}

TEST_F(KspCryptTranscript, KeyPairDecryptsAndAnExpiredSignOnIsRenewedOnce)
{
    token.withKeyPair(usageKeyExchange, algorithmRsa2048).hardware = 1;
    const auto key = opened(token.keyPairs[0]);
    cachePin("old pin");
    token.willAnswer(Call::decrypt, 49);
    user.entersPin("1234");
    decryptAll(key, 0, {room(12)});
    errorsAlone();
    decryptAll(key, NCRYPT_SILENT_FLAG, {room(9)});
    for (int i = 0; i < 3; ++i) token.willAnswer(Call::decrypt, 49);
    user.entersPin("1234");
    user.cancels();
    decryptAll(key, 0, {room(10), room(10)});
}

TEST_F(KspCryptTranscript, SymmetricKeyDecryptsWithTheSharedVectorInCBCOnly)
{
    const auto key = clearKey(counting(16));
    cachePin();
    ksp.setKeyProperty(key, L"IV", counting(16, 0xA0));
    token.symmetricPlain.bytes = counting(20);
    decryptAll(key, 0, {room(20)});
    recorder.note("asking for the size decrypts, and a short buffer is written down as none");
    ksp.setKeyProperty(key, L"ChainingMode", wideBytes(L"ChainingModeECB"));
    decryptAll(key, 0, {query(), room(19)});
    errorsAlone();
    recorder.note("a key that the token holds is taken for a key pair");
    decryptAll(imported(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 16}), counting(16)})), 0, {query(), room(10)});
}

TEST_F(KspCryptTranscript, AtLevelTwoErrorsAlone)
{
    const auto key = keyOf(algorithmRsa1024), symmetric = clearKey(counting(16));
    errorsAlone();
    for (int i = 0; i < 3; ++i) user.cancels();
    encryptAll(key, 0, {room(128)});
    decryptAll(key, 0, {room(128)});
    decryptAll(symmetric, 0, {query()});
    cachePin();
    token.willAnswer(Call::encrypt, 49);
    encryptAll(key, 0, {room(128)});
    token.willAnswer(Call::decrypt, 50);
    decryptAll(key, 0, {room(64)});
    token.willAnswer(Call::decryptSymetric, 49);
    decryptAll(symmetric, 0, {room(64)});
    recorder.note("lengths that can't be are failures");
    for (const int reported : {-1, 1025}) {
        token.cipher = {.bytes = Bytes{}, .reportedLength = reported};
        encryptAll(key, 0, {room(128)});
    }
    for (const int reported : {-1, 33}) {
        token.plain = {.bytes = counting(32), .reportedLength = reported};
        decryptAll(key, 0, {room(64)});
        token.symmetricPlain = {.bytes = Bytes{}, .reportedLength = reported};
        decryptAll(symmetric, 0, {room(64)});
    }
    token.plain = {.bytes = counting(3), .reportedLength = {}, .nullBuffer = true};
    decryptAll(key, 0, {room(64)});
    recorder.note("what comes with a failure is not given out");
    token.plain = {.bytes = counting(3), .reportedLength = {}, .nullBuffer = false, .evenIfRefused = true};
    token.willAnswer(Call::decrypt, 50);
    decryptAll(key, 0, {room(64)});
}

} // namespace quelta::test
