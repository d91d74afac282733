#include "ksp/ksp_scenario.h"

#include "encoding/rsa_public_key.h"
#include "ksp/key.h"
#include "token/record_fields.h"

namespace quelta::test {

class KspKeyBlobsTranscript : public KspScenario {
protected:
    static constexpr std::uint32_t rsaMagic = 0x31415352;

    // Returns the bytes. The transcript has the word in their place.
    Bytes named(const std::string& word, const Bytes& bytes)
    {
        recorder.call(bytes, "<" + word + ">");
        return bytes;
    }
    Bytes publicBlob(std::uint32_t bits, std::uint32_t size)
    {
        return named("CNG, " + std::to_string(bits) + " bits, " + std::to_string(size) + " bytes",
                     concat({littleEndian({rsaMagic, bits, 3, size, 0, 0}), Bytes{1, 0, 1}, counting(size, 0xC1)}));
    }
    // The header has another magic number.
    Bytes legacyBlob(std::uint32_t bits, std::uint32_t exponent = 0x10003)
    {
        return named("legacy, " + std::to_string(bits) + " bits",
                     concat({Bytes(8, 0xFF), littleEndian({rsaMagic, bits, exponent}), counting(bits / 8, 0xC1)}));
    }
    Bytes keyData(std::uint32_t size)
    {
        return named("key data, " + std::to_string(size) + " bytes",
                     concat({littleEndian({0x4D42444B, 9, size}), counting(size)}));
    }

    // Imports each blob and notes the content of the new key's record. Returns the last key.
    Key importEach(LPCWSTR type, std::initializer_list<Bytes> blobs, Key with = 0)
    {
        Key last = 0;
        for (const Bytes& blob : blobs) {
            last = ksp("KSPImportKey", {with, type, blob});
            if (const KspKey* key = kspKeyOf(last)) recorder.note(keyWords(*key) + (key->finalized ? "" : ", not finalized"));
        }
        return last;
    }
};

TRANSCRIPT(KspKeyBlobsTranscript, "a public key is kept as it stands and needs no token")
{
    importEach(L"RSAPUBLICBLOB", {publicBlob(2048, 256), publicBlob(1536, 192)});
    errorsAlone();
    importEach(L"PUBLICBLOB", {publicBlob(1024, 128), publicBlob(3072, 384), concat({publicBlob(4096, 512), Bytes{1, 2}})});
    recorder.note("whatever length is announced, unless it is too long or not there");
    importEach(L"PUBLICBLOB", {publicBlob(2048, 3), publicBlob(1024, 513), Bytes(24)});
}

TRANSCRIPT(KspKeyBlobsTranscript, "a legacy public key becomes DER and is exported as that")
{
    const auto nameDer = [this](std::uint32_t size, const char* exponent) {
        const Bytes modulus = reversed(counting(size, 0xC1)), der = rsaPublicKeyToDer(toHex(modulus), exponent);
        named("CNG blob of that", cngBlob(der));
        named("DER of " + words(modulus) + " and " + exponent, der);
    };
    nameDer(256, "010003");
    const auto key = importEach(L"CAPIPUBLICBLOB", {concat({legacyBlob(2048), Bytes{1, 2}})});
    ksp("KSPExportKey", {key, L"RSAPUBLICBLOB", room(400)});
    importEach(L"CAPIPUBLICBLOB", {legacyBlob(1536)});
    errorsAlone();
    nameDer(128, "000003");
    nameDer(384, "010003");
    importEach(L"CAPIPUBLICBLOB", {legacyBlob(1024, 0xAB000003), legacyBlob(3072)});
    recorder.note("the DER form of these is longer than what an import keeps, and one is not whole");
    importEach(L"CAPIPUBLICBLOB", {legacyBlob(4096), legacyBlob(8192), Bytes(20)});
}

TRANSCRIPT(KspKeyBlobsTranscript, "a clear key is stored on the token by the code of its length")
{
    token.onImportAesKey = [](QueltaSymmetricKey& stored) {
        setReference(stored, Bytes{0xC1, 0xC2});
        setText(stored.label, "stored");
        stored.usage = usageBoth;
        stored.flag = 1;
    };
    importEach(L"KeyDataBlob", {keyData(16)});
    cachePin();
    errorsAlone();
    importEach(L"KeyDataBlob", {keyData(24), concat({keyData(32), Bytes{1}}), keyData(17), Bytes(12)});
    recorder.note("the token's answer is what counts");
    token.onImportAesKey = [](QueltaSymmetricKey& stored) { stored.encryptionType = 77; };
    importEach(L"KeyDataBlob", {keyData(16)});
}

TRANSCRIPT(KspKeyBlobsTranscript, "a wrapped key is tried with each AES key in turn")
{
    cachePin();
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::decryptAes, 11);
    importEach(L"OpaqueKeyBlob", {Bytes{9, 8, 7}});
    errorsAlone();
    token.aesKeys.resize(2);
    token.unwrapped.bytes = counting(24);
    importEach(L"OpaqueKeyBlob", {Bytes{9}});
}

TRANSCRIPT(KspKeyBlobsTranscript, "an encrypted key is tried reversed, then as it is")
{
    token.withKeyPair(usageKeyExchange, algorithmRsa2048).hardware = 1;
    const auto with = opened(token.keyPairs[0]);
    cachePin();
    token.plain.bytes = counting(16);
    token.willAnswer(Call::decrypt, 49);
    importEach(L"PKCS8_PRIVATEKEY", {Bytes{9, 8, 7}}, with);
    recorder.note("without a key to decrypt with the type decides the refusal");
    for (const LPCWSTR type : {L"OpaqueTransport", L"opaquetransport"}) importEach(type, {Bytes{9}});
    errorsAlone();
    token.plain.bytes = counting(24);
    importEach(L"OpaqueTransport", {Bytes{9, 8, 7}}, with);
    recorder.note("and where there is one, any other type is such a key");
    token.plain.bytes = counting(32);
    importEach(L"of another kind", {Bytes{9, 8, 7}}, with);
}

TRANSCRIPT(KspKeyBlobsTranscript, "key bytes are exported as they stand, and fetched once if there are none")
{
    for (const auto algorithm : {algorithmRsa2048, algorithmP256}) {
        const auto& pair = token.withKeyPair(usageSigning, algorithm);
        const auto publicKey = toBytes(publicKeyOf(pair));
        const auto size = static_cast<std::uint32_t>(publicKey.size());
        named("CNG blob of that key", cngBlob(publicKey));
        named("legacy blob of that key",
              concat({Bytes{6, 2, 0, 0}, littleEndian({0xA400, rsaMagic, size * 8, 0x10001}), reversed(publicKey)}));
        const auto key = opened(pair);
        for (const LPCWSTR type : {L"RSAPUBLICBLOB", L"CAPIPUBLICBLOB"}) ksp("KSPExportKey", {key, type, room(300), 64});
    }
    setPublicKey(token.keyPairs[0], {});
    const auto key = opened(token.keyPairs[0]);
    for (const LPCWSTR type : {L"PRIVATEBLOB", L"CAPIPRIVATEBLOB", L"publicblob"}) ksp("KSPExportKey", {key, type, query()});
    errorsAlone();
    for (const std::size_t size : {0, 7, 9}) {
        setPublicKey(token.keyPairs[0], counting(size));
        ksp("KSPExportKey", {key, L"PUBLICBLOB", query()});
    }
}

} // namespace quelta::test
