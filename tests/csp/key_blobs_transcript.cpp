#include "csp/csp_scenario.h"

namespace quelta::test {

namespace {

constexpr BYTE wrapBlob = 11;

Bytes publicBlob(DWORD bits, DWORD exponent = 65537, DWORD magic = 0x31415352)
{
    const Bytes modulus = reversed(counting(bits / 8, 0xC1));
    return keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({magic, bits, exponent}), modulus}));
}

// Returns a blob with an ignored word between header and key.
Bytes symmetricBlob(BYTE type, ALG_ID algorithm, std::size_t size)
{
    return keyBlob(type, algorithm, concat({littleEndian({CALG_RSA_KEYX}), counting(size)}));
}

} // namespace

class KeyBlobsTranscript : public CspScenario {
protected:
    KeyBlobsTranscript()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048).hardware = 1;
        token.onImportAesKey = [](QueltaSymmetricKey& stored) {
            setReference(stored, Bytes{0xC1, 0xC2});
            setText(stored.label, "stored");
            stored.usage = 9;
            stored.flag = 1;
        };
        open();
        cachePin();
        with = userKey();
    }
    void import(const Bytes& blob)
    {
        if (const HCRYPTKEY imported = csp("CPImportKey", {blob, with})) noteKey(imported);
    }

    HCRYPTKEY with;
};

TRANSCRIPT(KeyBlobsTranscript, "a public key becomes DER and needs no token")
{
    import(publicBlob(2048));
    import(publicBlob(1536));
    errorsAlone();
    for (const DWORD bits : {1024, 3072, 4096}) import(publicBlob(bits));
    import(concat({publicBlob(1024, 0x00010003), Bytes { 1, 2, 3 }}));
    import(publicBlob(1024, 65537, 0x31415372));
    Bytes tooShort = publicBlob(1024);
    tooShort.pop_back();
    import(tooShort);
}

TRANSCRIPT(KeyBlobsTranscript, "a plain key is stored on the token")
{
    import(symmetricBlob(PLAINTEXTKEYBLOB, CALG_AES_128, 16));
    errorsAlone();
    for (const std::size_t size : {128, 129}) import(symmetricBlob(PLAINTEXTKEYBLOB, CALG_AES_256, size));
    import(symmetricBlob(PLAINTEXTKEYBLOB, CALG_AES_192, 24));
}

TRANSCRIPT(KeyBlobsTranscript, "a wrapped key is tried with each AES key in turn")
{
    const Bytes blob = keyBlob(wrapBlob, CALG_AES_128, counting(28));
    token.withAesKey(encryptionTripleDes);
    import(blob);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::decryptAes, 11);
    import(blob);
    errorsAlone();
    import(keyBlob(wrapBlob, CALG_3DES, counting(5)));
}

TRANSCRIPT(KeyBlobsTranscript, "an encrypted key is tried reversed, then as it is")
{
    const auto blob = [](ALG_ID algorithm) { return symmetricBlob(SIMPLEBLOB, algorithm, 128); };
    token.plain.bytes = counting(24, 0x70);
    import(blob(CALG_3DES));
    errorsAlone();
    token.keyPairs[0].hardware = 0;
    with = userKey();
    token.plain.bytes = counting(32, 0x70);
    token.willAnswer(Call::decrypt, 49);
    import(blob(CALG_AES_256));
    token.plain.bytes = Bytes(16);
    for (const ALG_ID algorithm : {CALG_AES_128, CALG_AES_192}) import(blob(algorithm));
    with = 0;
    import(blob(CALG_AES_192));
}

TRANSCRIPT(KeyBlobsTranscript, "blobs of other types and without content are refused")
{
    import(symmetricBlob(PRIVATEKEYBLOB, CALG_AES_128, 16));
    csp("CPImportKey", {CspCalls::null, 0, CRYPT_EXPORTABLE});
    errorsAlone();
    for (const BYTE type : Bytes{0, 9, PUBLICKEYBLOBEX, 12}) import(symmetricBlob(type, CALG_AES_128, 16));
    import(symmetricBlob(12, CALG_AES_128, 0));
    recorder.note("the blobs end at an inaccessible page: in the header, behind it, in the word, and behind that");
    for (const BYTE type : Bytes{SIMPLEBLOB, PUBLICKEYBLOB, PLAINTEXTKEYBLOB, wrapBlob}) {
        const Bytes blob = symmetricBlob(type, CALG_AES_128, 1);
        for (const auto size : {7, 8, 11, 12}) import({blob.begin(), blob.begin() + size});
    }
}

TRANSCRIPT(KeyBlobsTranscript, "the public key of a key pair is exported")
{
    for (const Place& place : {query(7), room(275), room(276)}) csp("CPExportKey", {with, PUBLICKEYBLOB, 5, place});
    for (const DWORD type : {PRIVATEKEYBLOB, SIMPLEBLOB}) csp("CPExportKey", {with, type, 0, room(276)});
    csp("CPExportKey", {with, PUBLICKEYBLOB, 0, nowhere()});
    errorsAlone();
    recorder.note("only keys of 2048 bits that the token still has");
    token.keyPairs[0].algorithm = algorithmRsa3072;
    csp("CPExportKey", {with, PUBLICKEYBLOB, 0, query()});
    token.keyPairs[0].algorithm = algorithmRsa2048;
    token.keyPairs[0].keyId[15] ^= 1;
    csp("CPExportKey", {with, PUBLICKEYBLOB, 0, query()});
}

} // namespace quelta::test
