#include "ksp/ksp_scenario.h"

#include "ksp/key.h"

namespace quelta::test {

using KspKeysTranscript = KspScenario;

TRANSCRIPT(KspKeysTranscript, "a key is opened by its whole name, but an earlier key with that label is taken")
{
    ksp("KSPOpenKey", {L"01"});
    setText(token.withKeyPair(usageSigning, algorithmRsa2048).label, "03030303030303030303030303030303");
    auto& second = token.withKeyPair(usageKeyExchange, algorithmP384);
    std::ranges::fill(second.keyId, static_cast<unsigned char>(0xAB));
    setText(second.label, "label");
    token.withKeyPair(usageBoth, algorithmRsa4096);
    ksp("KSPOpenKey", {L"ABABABABABABABABABABABABABABABAB", AT_SIGNATURE, 64});
    ksp("KSPOpenKey", {L"abababababababababababababababab"});
    ksp("KSPOpenKey", {L"03030303030303030303030303030303"});
    errorsAlone();
    for (const LPCWSTR name : {L"ABABABABABABABABABABABABABABABA", L"label", LPCWSTR()}) ksp("KSPOpenKey", {name});
    recorder.note("of each character the low byte counts");
    ksp("KSPOpenKey", {L"\u4E41BABABABABABABABABABABABABABABAB"});
}

TRANSCRIPT(KspKeysTranscript, "a key is made in the process, then on the token")
{
    token.onGenerate = [](QueltaKeyPair& pair) {
        setPublicKey(pair, counting(5, 0x31));
        setReference(pair, counting(3));
        setText(pair.label, "made");
        pair.hardware = 1;
        pair.algorithm = algorithmP521;
        pair.usage = usageKeyExchange;
    };
    const auto key = ksp("KSPCreatePersistedKey", {L"RSA", L"a name", 0, 64});
    user.cancels();
    ksp("KSPFinalizeKey", {key, 64});
    cachePin();
    errorsAlone();
    get(key, {L"Length", L"Name"});
    everyLine();
    ksp("KSPSetKeyProperty", {key, L"Key Usage", littleEndian({3})});
    ksp("KSPFinalizeKey", {key});
    recorder.note("once is enough, and an opened key is there already");
    for (const Key made : {key, withKey(algorithmRsa2048)}) ksp("KSPFinalizeKey", {made});
    errorsAlone();
    get(key, {L"Name", L"Algorithm Name", L"Key Usage", L"Length"});
    recorder.call(cngBlob(counting(5, 0x31)), "the CNG blob of 3132333435");
    ksp("KSPExportKey", {key, L"PUBLICBLOB", room(32)});
    ksp("KSPSetKeyProperty", {key, L"SmartCardKeyCertificate", counting(10)});
    ksp("KSPDeleteKey", {key});
}

TRANSCRIPT(KspKeysTranscript, "the settings decide what the token is asked for")
{
    cachePin();
    errorsAlone();
    const struct {
        LPCWSTR algorithm;
        DWORD keySpec;
        std::optional<DWORD> length;
    } rows[] = {{L"RSA", AT_SIGNATURE, 0}, {L"RSA", AT_KEYEXCHANGE, 1024},        {L"RSA", 3, 3072},
                {L"RSA", 0, 1536},         {L"ECDSA_P256", AT_KEYEXCHANGE, 4096}, {L"ECDSA_P521", 0, {}},
                {L"RSA", 0, 256}};
    for (const auto& row : rows) {
        const auto key = ksp("KSPCreatePersistedKey", {row.algorithm, nullptr, row.keySpec});
        if (row.length) ksp("KSPSetKeyProperty", {key, L"Length", littleEndian({*row.length})});
        ksp("KSPFinalizeKey", {key});
        get(key, {L"Length"});
    }
    recorder.note("other names are none");
    for (const LPCWSTR algorithm : {L"rsa", L"ECDSA_P256 "}) ksp("KSPCreatePersistedKey", {algorithm, L"a name"});
}

TRANSCRIPT(KspKeysTranscript, "a deleted key loses its name")
{
    const auto key = withKey(algorithmRsa1024);
    cachePin();
    ksp("KSPDeleteKey", {key, 64});
    recorder.note("its name has " + std::to_string(kspKeyOf(key)->keyName.size()) + " letters");
    ksp("KSPFinalizeKey", {key});
    errorsAlone();
    tokenState().pinCache.clear();
    user.cancels();
    ksp("KSPDeleteKey", {key});
    ksp("KSPFreeKey", {key});
}

TRANSCRIPT(KspKeysTranscript, "algorithms are selected by any shared operation")
{
    ksp.enumAlgorithms(0);
    ksp.enumAlgorithms(NCRYPT_HASH_OPERATION);
    errorsAlone();
    ksp.enumAlgorithms(NCRYPT_SIGNATURE_OPERATION);
    ksp.enumAlgorithms(NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_CIPHER_OPERATION);
    const auto provider = std::exchange(ksp.provider, 0);
    for (const LPCWSTR name : {L"RSA", L"ECDSA_P256", L"ECDSA_P384", L"ECDSA_P521", L"SHA256", L"SHA1", L"SHA384", L"SHA512"}) {
        ksp("KSPIsAlgSupported", {name});
    }
    everyLine();
    for (const LPCWSTR name : {L"rsa", L"SHA2561"}) ksp("KSPIsAlgSupported", {name, 64});
    ksp.provider = provider;
}

TRANSCRIPT(KspKeysTranscript, "an enumeration gives the keys that the token had at its start")
{
    void *empty = nullptr, *state = nullptr, *another = nullptr;
    ksp.enumKeys(empty);
    token.withKeyPair(usageSigning, algorithmRsa2048);
    token.withKeyPair(usageBoth, algorithmP256);
    ksp.enumKeys(state);
    errorsAlone();
    ksp.enumKeys(empty);
    token.withKeyPair(usageKeyExchange, algorithmP384);
    token.withKeyPair(0, algorithmP521);
    for (int i = 0; i < 3; ++i) ksp.enumKeys(state);
    recorder.note("another sees them");
    for (int i = 0; i < 4; ++i) ksp.enumKeys(another);
    for (void* begun : {empty, state, another}) ksp("KSPFreeBuffer", {addressOf(begun)});
}

} // namespace quelta::test
