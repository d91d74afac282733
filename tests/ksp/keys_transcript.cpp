#include "ksp/ksp_scenario.h"

#include "ksp/key.h"

namespace quelta::test {

class KspKeysTranscript : public KspScenario {
protected:
    KspKeysTranscript() { open(); }

    // Made as these settings say, and then generated.
    NCRYPT_KEY_HANDLE made(LPCWSTR algorithm, DWORD keySpec, std::optional<DWORD> length)
    {
        const auto key = ksp.createPersistedKey(algorithm, nullptr, keySpec);
        if (length) ksp.setKeyProperty(key, L"Length", littleEndian({*length}));
        ksp.finalizeKey(key);
        return key;
    }
    void getLength(NCRYPT_KEY_HANDLE key) { ksp.getKeyProperty(key, L"Length", room(4)); }
};

TEST_F(KspKeysTranscript, KeyIsOpenedByItsWholeNameInUpperCase)
{
    setText(token.withKeyPair(usageSigning, algorithmRsa2048).label, "label");
    std::ranges::fill(token.withKeyPair(usageKeyExchange, algorithmP384).keyId, static_cast<unsigned char>(0xAB));
    token.withKeyPair(usageBoth, algorithmRsa4096);
    ksp.openKey(L"ABABABABABABABABABABABABABABABAB", AT_SIGNATURE, 64);
    ksp.openKey(L"abababababababababababababababab");
    errorsAlone();
    for (const LPCWSTR name : {L"ABABABABABABABABABABABABABABABA", L"label", static_cast<LPCWSTR>(nullptr)}) ksp.openKey(name);
    recorder.note("of each character the low byte counts");
    std::wstring name(L"ABABABABABABABABABABABABABABABAB");
    name.front() += 0x4E00;
    ksp.openKey(name.c_str());
}

TEST_F(KspKeysTranscript, EarlierKeyIsTakenForItsLabelOnceAKeyHasTheName)
{
    setText(token.withKeyPair(usageSigning, algorithmRsa1024).label, "02020202020202020202020202020202");
    token.withKeyPair(usageSigning, algorithmRsa4096);
    const auto key = ksp.openKey(L"02020202020202020202020202020202");
    errorsAlone();
    ksp.getKeyProperty(key, L"Name", room(66));
}

TEST_F(KspKeysTranscript, KeyIsMadeInTheProcessAndThenOnTheToken)
{
    token.openSingleSignOn();
    const auto key = ksp.createPersistedKey(L"RSA", L"a name");
    ksp.finalizeKey(key, 64);
    recorder.note("once is enough, and an opened key is there already");
    ksp.finalizeKey(key);
    ksp.finalizeKey(opened(token.withKeyPair(usageSigning, algorithmRsa2048)));
    errorsAlone();
    getLength(key);
    ksp.getKeyProperty(key, L"Name", room(66));
}

TEST_F(KspKeysTranscript, TokenIsAskedForWhatTheSettingsMean)
{
    cachePin();
    errorsAlone();
    made(L"RSA", AT_SIGNATURE, 0);
    getLength(made(L"RSA", AT_KEYEXCHANGE, 1024));
    made(L"RSA", 3, 3072);
    made(L"RSA", 0, 4096);
    recorder.note("a length that the token has no key for stays as it was set");
    getLength(made(L"RSA", 0, 1536));
    getLength(made(L"ECDSA_P256", AT_KEYEXCHANGE, 4096));
    getLength(made(L"ECDSA_P384", 0, {}));
    getLength(made(L"ECDSA_P521", 0, {}));
    recorder.note("other names are none");
    for (const LPCWSTR algorithm : {L"rsa", L"ECDSA_P256 ", L"ECDSA"}) ksp.createPersistedKey(algorithm, L"a name");
}

TEST_F(KspKeysTranscript, WhatTheTokenMadeIsTakenOverButNotItsAlgorithmAndUsage)
{
    cachePin();
    token.onGenerate = [](QueltaKeyPair& pair) {
        setPublicKey(pair, counting(5, 0x31));
        setReference(pair, counting(3));
        setText(pair.label, "made");
        pair.hardware = 1;
        pair.algorithm = algorithmP521;
        pair.usage = usageBoth;
    };
    errorsAlone();
    const auto key = made(L"RSA", 0, {});
    for (const LPCWSTR name : {L"Algorithm Name", L"Key Usage", L"Length"}) ksp.getKeyProperty(key, name, room(8));
    recorder.call(cngBlob(counting(5, 0x31)), "the CNG blob of 3132333435");
    ksp.exportKey(key, L"PUBLICBLOB", room(32));
    recorder.note("reference, label and flag come with it");
    ksp.setKeyProperty(key, L"SmartCardKeyCertificate", counting(10));
    ksp.deleteKey(key);
}

TEST_F(KspKeysTranscript, FailedGenerationLeavesTheKeyToBeTriedAgain)
{
    const auto key = created(L"RSA");
    user.cancels();
    ksp.finalizeKey(key);
    cachePin();
    token.willAnswer(Call::generateKeyPair, 31);
    ksp.finalizeKey(key);
    errorsAlone();
    getLength(key);
    ksp.getKeyProperty(key, L"Name", room(66));
    ksp.setKeyProperty(key, L"Length", littleEndian({4096}));
    ksp.setKeyProperty(key, L"Key Usage", littleEndian({3}));
    ksp.finalizeKey(key);
}

TEST_F(KspKeysTranscript, DeletedKeyLosesItsNameAndOneThatStaysDoesNot)
{
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    const auto noteName = [&] {
        const std::wstring& name = kspKeyOf(key)->keyName;
        recorder.note("its name is \"" + std::string(name.begin(), name.end()) + "\"");
    };
    cachePin();
    token.willAnswer(Call::deleteKeyPair, -4);
    ksp.deleteKey(key, 64);
    noteName();
    ksp.deleteKey(key);
    noteName();
    ksp.finalizeKey(key);
    ksp.freeKey(key);
}

TEST_F(KspKeysTranscript, AlgorithmsAreSelectedByAnySharedOperation)
{
    ksp.enumAlgorithms(0);
    ksp.enumAlgorithms(NCRYPT_HASH_OPERATION, 64);
    errorsAlone();
    ksp.enumAlgorithms(NCRYPT_SIGNATURE_OPERATION);
    ksp.enumAlgorithms(NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_CIPHER_OPERATION);
}

TEST_F(KspKeysTranscript, SupportedAlgorithmsNeedNoProvider)
{
    const auto provider = std::exchange(ksp.provider, 0);
    for (const LPCWSTR name : {L"RSA", L"ECDSA_P256", L"ECDSA_P384", L"ECDSA_P521", L"SHA256", L"SHA1", L"SHA384", L"SHA512"}) {
        ksp.isAlgSupported(name);
    }
    for (const LPCWSTR name : {L"", L"rsa", L"SHA", L"SHA2561"}) ksp.isAlgSupported(name, 64);
    ksp.provider = provider;
}

TEST_F(KspKeysTranscript, KeysAreThoseOfTheFirstLook)
{
    void* empty = nullptr;
    ksp.enumKeys(empty);
    token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageBoth, algorithmP256);
    void* state = nullptr;
    ksp.enumKeys(state, L"a scope", 64);
    errorsAlone();
    ksp.enumKeys(empty);
    token.withKeyPair(usageKeyExchange, algorithmP384);
    token.withKeyPair(0, algorithmP521);
    for (int i = 0; i < 3; ++i) ksp.enumKeys(state);
    recorder.note("another sees them");
    void* another = nullptr;
    for (int i = 0; i < 4; ++i) ksp.enumKeys(another);
    for (void* begun : {empty, state, another}) ksp.freeBuffer(begun);
}

TEST_F(KspKeysTranscript, AtLevelTwoErrorsAlone)
{
    errorsAlone();
    ksp.openKey(L"01");
    const auto key = opened(token.withKeyPair(usageSigning, algorithmRsa1024));
    user.cancels();
    ksp.deleteKey(key);
    cachePin();
    token.willAnswer(Call::deleteKeyPair, 32);
    ksp.deleteKey(key);
    token.willAnswer(Call::generateKeyPair, 31);
    ksp.finalizeKey(created(L"ECDSA_P256"));
    ksp.freeKey(0);
}

} // namespace quelta::test
