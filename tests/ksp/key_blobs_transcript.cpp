#include "ksp/ksp_scenario.h"

#include "token/record_fields.h"

#include "encoding/rsa_public_key.h"
#include "ksp/key.h"

namespace quelta::test {

namespace {

constexpr std::uint32_t rsaMagic = 0x31415352;
constexpr std::uint32_t keyDataMagic = 0x4D42444B;
constexpr std::uint32_t most = 0xFFFFFFFF;

} // namespace

class KspKeyBlobsTranscript : public KspScenario {
protected:
    KspKeyBlobsTranscript()
    {
        token.onImportAesKey = [](QueltaSymmetricKey& stored) {
            setReference(stored, Bytes{0xC1, 0xC2});
            setText(stored.label, "stored");
            stored.usage = usageBoth;
            stored.flag = 1;
        };
        open();
    }

    // Bytes, and the word that stands for them.
    Bytes named(const std::string& word, const Bytes& bytes)
    {
        recorder.call(bytes, "<" + word + ">");
        return bytes;
    }
    Bytes publicBlob(std::uint32_t bits, std::uint32_t size)
    {
        return named("CNG, " + std::to_string(bits) + " bits, " + std::to_string(size) + " bytes",
                     concat({littleEndian({rsaMagic, bits, 3, size, 0, 0}), {1, 0, 1}, counting(size, 0xC1)}));
    }
    // With a header that says nothing of the kind.
    Bytes legacyBlob(std::uint32_t bits, std::size_t size, std::uint32_t exponent = 0x10003)
    {
        return named("legacy, " + std::to_string(bits) + " bits, " + std::to_string(size) + " bytes",
                     concat({Bytes(8, 0xFF), littleEndian({rsaMagic, bits, exponent}), counting(size, 0xC1)}));
    }
    Bytes keyData(std::uint32_t size)
    {
        return named("key data, " + std::to_string(size) + " bytes",
                     concat({littleEndian({keyDataMagic, 9, size}), counting(size)}));
    }
    Bytes without(std::ptrdiff_t left, const Bytes& blob)
    {
        return named("the same less " + std::to_string(left), {blob.begin(), blob.end() - left});
    }
    Bytes withoutMagic(std::size_t at, Bytes blob)
    {
        blob[at] = 'x';
        return named("the same with another magic", blob);
    }

    // And what came of it, as far as the handle's record tells.
    NCRYPT_KEY_HANDLE import(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE with = 0)
    {
        const auto handle = ksp.importKey(type, blob, with);
        if (handle == 0) return 0;
        const KspKey& key = *kspKeyOf(handle);
        std::string text = "algorithm " + std::to_string(key.algorithm) + ", " + std::to_string(key.bitLength) + " bits";
        if (!key.publicKey.empty()) text += ", public key " + hexOf(key.publicKey.view());
        if (!key.symmetricKey->empty()) text += ", symmetric key " + words(key.symmetricKey->view());
        if (key.keyId != decltype(key.keyId){}) {
            text += ", id " + hexOf(key.keyId) + ", usage " + std::to_string(key.keyUsage) + ", flag " +
                    std::to_string(key.keyPairFlag) + ", label \"" + std::string(key.label.view().begin(), key.label.view().end()) + "\", reference " +
                    hexOf(key.objectId.view());
        }
        recorder.note(text + (key.finalized ? "" : ", not finalized"));
        return handle;
    }
    void importAll(LPCWSTR type, std::initializer_list<Bytes> blobs)
    {
        for (const Bytes& blob : blobs) import(type, blob);
    }
};

TEST_F(KspKeyBlobsTranscript, PublicKeyIsKeptAsItStandsAndNeedsNoToken)
{
    const auto key = import(L"RSAPUBLICBLOB", publicBlob(2048, 256));
    ksp.importKey(L"RSAPUBLICBLOB", publicBlob(1536, 192));
    errorsAlone();
    for (const LPCWSTR name : {L"Name", L"Key Usage"}) ksp.getKeyProperty(key, name, room(66));
    importAll(L"PUBLICBLOB", {publicBlob(1024, 128), publicBlob(3072, 384), concat({publicBlob(4096, 512), {1, 2}})});
    recorder.note("whatever length is announced");
    import(L"PUBLICBLOB", publicBlob(2048, 3));
    recorder.note("and blobs that do not hold together or are too long");
    importAll(L"PUBLICBLOB", {without(1, publicBlob(1024, 128)), withoutMagic(0, publicBlob(1024, 128)), publicBlob(1024, 513),
                              without(4, publicBlob(1024, 0)),
                              named("2^32 - 1 bytes", concat({littleEndian({rsaMagic, 2048, 1, most, 0, 0}), Bytes(64)}))});
}

TEST_F(KspKeyBlobsTranscript, LegacyPublicKeyBecomesDERMostSignificantByteFirstAndIsExportedAsThat)
{
    const auto nameDer = [this](std::uint32_t size, const char* exponent) {
        const Bytes modulus = reversed(counting(size, 0xC1)), der = rsaPublicKeyToDer(hexOf(modulus), exponent);
        named("CNG blob of that", cngBlob(der));
        named("DER of " + words(modulus) + " and " + exponent, der);
    };
    nameDer(256, "010003");
    const auto key = import(L"CAPIPUBLICBLOB", concat({legacyBlob(2048, 256), {1, 2}}));
    ksp.exportKey(key, L"RSAPUBLICBLOB", room(400));
    ksp.importKey(L"CAPIPUBLICBLOB", legacyBlob(1536, 192));
    errorsAlone();
    nameDer(128, "000003");
    import(L"CAPIPUBLICBLOB", legacyBlob(1024, 128, 0xAB000003));
    nameDer(384, "010003");
    import(L"CAPIPUBLICBLOB", legacyBlob(3072, 384));
    recorder.note("the DER form of these is longer than what an import keeps");
    importAll(L"CAPIPUBLICBLOB", {legacyBlob(4096, 512), legacyBlob(8192, 1024)});
    recorder.note("and blobs that do not hold together");
    importAll(L"CAPIPUBLICBLOB", {without(1, legacyBlob(2048, 256)), withoutMagic(8, legacyBlob(2048, 256)),
                                  legacyBlob(most, 128), legacyBlob(7, 0), without(1, legacyBlob(7, 0))});
}

TEST_F(KspKeyBlobsTranscript, ClearKeyIsStoredOnTheTokenByTheCodeOfItsLength)
{
    import(L"KeyDataBlob", keyData(16));
    cachePin();
    errorsAlone();
    importAll(L"KeyDataBlob", {keyData(24), concat({keyData(32), {1}})});
    recorder.note("the token's answer is what counts");
    token.onImportAesKey = [](QueltaSymmetricKey& stored) { stored.encryptionType = 77; };
    import(L"KeyDataBlob", keyData(16));
    token.willAnswer(Call::importAesKey, 49);
    import(L"KeyDataBlob", keyData(16));
    recorder.note("and blobs that do not hold together or have another length");
    importAll(L"KeyDataBlob",
              {withoutMagic(0, keyData(16)), without(1, keyData(16)), without(17, keyData(16)), keyData(0), keyData(17),
               keyData(129), named("2^32 - 12 bytes", concat({littleEndian({keyDataMagic, 1, most - 11}), Bytes(16)}))});
}

TEST_F(KspKeyBlobsTranscript, WrappedKeyIsTriedWithEachAESKeyInTurnAndFailsByTheStepThatFailed)
{
    cachePin();
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::decryptAes, 11);
    import(L"OpaqueKeyBlob", {9, 8, 7});
    errorsAlone();
    token.aesKeys.resize(2);
    token.unwrapped.bytes = counting(24);
    import(L"OpaqueKeyBlob", {9});
    token.willAnswer(Call::importAesKey, 6);
    import(L"OpaqueKeyBlob", {9});
    token.willAnswer(Call::decryptAes, 11);
    import(L"OpaqueKeyBlob", {9});
    for (const auto& [reported, none] : {std::pair(16, true), {-1, false}, {129, false}}) {
        token.unwrapped = {.bytes = {}, .reportedLength = reported, .nullBuffer = none};
        import(L"OpaqueKeyBlob", {9});
    }
    token.aesKeys.resize(1);
    import(L"OpaqueKeyBlob", {9});
}

TEST_F(KspKeyBlobsTranscript, EncryptedKeyIsTriedReversedAndThenAsItIs)
{
    token.withKeyPair(usageKeyExchange, algorithmRsa2048).hardware = 1;
    const auto with = opened(token.keyPairs[0]);
    cachePin();
    token.plain.bytes = counting(16);
    token.willAnswer(Call::decrypt, 49);
    import(L"PKCS8_PRIVATEKEY", {9, 8, 7}, with);
    errorsAlone();
    token.plain.bytes = counting(24);
    import(L"OpaqueTransport", {9, 8, 7}, with);
    recorder.note("any other type, where there is a key to decrypt with");
    token.plain.bytes = counting(32);
    import(L"of another kind", {9, 8, 7}, with);
    recorder.note("without one the type decides the refusal");
    for (const LPCWSTR type : {L"OpaqueTransport", L"PKCS8_PRIVATEKEY", L"opaquetransport"}) import(type, {9});
}

TEST_F(KspKeyBlobsTranscript, DecryptedKeyMustHaveTheLengthOfOne)
{
    const auto with = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    errorsAlone();
    for (const int reported : {0, 17, 33, -16, 16}) {
        token.plain = {.bytes = counting(16), .reportedLength = reported, .nullBuffer = reported == 16};
        import(L"OpaqueTransport", {9}, with);
    }
}

TEST_F(KspKeyBlobsTranscript, KeyBytesAreExportedAsTheyStand)
{
    const auto withBlobs = [this](const QueltaKeyPair& pair) {
        const Bytes stored(publicKeyOf(pair).begin(), publicKeyOf(pair).end());
        const auto size = static_cast<std::uint32_t>(stored.size());
        named("CNG blob of " + std::to_string(size) + " bytes", cngBlob(stored));
        named("legacy blob of " + std::to_string(size) + " bytes",
              concat({{6, 2, 0, 0}, littleEndian({0xA400, rsaMagic, size * 8, 0x10001}), reversed(stored)}));
        return opened(pair);
    };
    const auto rsa = withBlobs(token.withKeyPair(usageSigning, algorithmRsa2048));
    ksp.exportKey(rsa, L"RSAPUBLICBLOB", query(7), 64);
    ksp.exportKey(rsa, L"RSAPUBLICBLOB", room(300));
    for (const DWORD size : {275, 276}) ksp.exportKey(rsa, L"CAPIPUBLICBLOB", room(size));
    recorder.note("private keys are refused without a word");
    for (const LPCWSTR type : {L"PRIVATEBLOB", L"CAPIPRIVATEBLOB", L"publicblob"}) ksp.exportKey(rsa, type, query());
    errorsAlone();
    for (const DWORD size : {282, 283}) ksp.exportKey(rsa, L"PUBLICBLOB", room(size));
    const auto curve = withBlobs(token.withKeyPair(usageSigning, algorithmP256));
    for (const LPCWSTR type : {L"PUBLICBLOB", L"CAPIPUBLICBLOB"}) ksp.exportKey(curve, type, room(120));
}

TEST_F(KspKeyBlobsTranscript, MissingPublicKeyIsFetchedFromTheTokenOnce)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    auto& pair = token.withKeyPair(usageSigning, algorithmRsa1024);
    setPublicKey(pair, {});
    const auto key = opened(pair);
    errorsAlone();
    ksp.exportKey(key, L"PUBLICBLOB", query());
    setPublicKey(pair, counting(7));
    ksp.exportKey(key, L"PUBLICBLOB", query());
    ksp.exportKey(key, L"CAPIPUBLICBLOB", query());
}

TEST_F(KspKeyBlobsTranscript, AtLevelTwoErrorsAlone)
{
    const auto with = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    errorsAlone();
    import(L"PUBLICBLOB", publicBlob(512, 64));
    import(L"CAPIPUBLICBLOB", legacyBlob(512, 64));
    for (int i = 0; i < 2; ++i) token.willAnswer(Call::decrypt, 49);
    import(L"?", {9}, with);
    ksp.exportKey(with, L"?", query());
}

} // namespace quelta::test
