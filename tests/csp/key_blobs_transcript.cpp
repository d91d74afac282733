#include "csp/csp_scenario.h"

namespace quelta::test {

namespace {

constexpr BYTE wrapBlob = 11;

Bytes publicBlob(DWORD bits, DWORD exponent = 65537)
{
    return keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, bits, exponent}), counting(bits / 8)}));
}

Bytes simpleBlob(ALG_ID algorithm)
{
    return keyBlob(SIMPLEBLOB, algorithm, concat({littleEndian({CALG_RSA_KEYX}), counting(128)}));
}

} // namespace

class KeyBlobsTranscript : public CspScenario {
protected:
    KeyBlobsTranscript()
    {
        token.withKeyPair(usageBoth, algorithmRsa2048).hardware = 1;
        open();
        cachePin();
    }
    void import(const Bytes& blob, HCRYPTKEY with = 0)
    {
        if (const HCRYPTKEY imported = csp.importKey(blob, with)) noteKey(imported);
    }
};

TEST_F(KeyBlobsTranscript, PublicKeyBecomesDERAndNeedsNoToken)
{
    import(publicBlob(2048));
    errorsAlone();
    for (const DWORD bits : {1024, 3072, 4096}) import(publicBlob(bits));
    import(concat({publicBlob(1024, 0x00010003), { 1, 2, 3 }}));
}

TEST_F(KeyBlobsTranscript, PublicKeyIsRefusedForItsMagicItsLengthAndItsSize)
{
    Bytes blob = publicBlob(1024);
    blob.pop_back();
    import(blob);
    import(publicBlob(1536));
    errorsAlone();
    blob = publicBlob(1024);
    blob[8] = 'r';
    import(blob);
}

TEST_F(KeyBlobsTranscript, PlainKeyIsStoredOnTheToken)
{
    token.onImportAesKey = [](QueltaSymmetricKey& stored) {
        setReference(stored, Bytes{0xC1, 0xC2});
        setText(stored.label, "stored");
        stored.usage = 9;
        stored.flag = 1;
    };
    const auto blob = [](ALG_ID algorithm, std::size_t size) {
        return keyBlob(PLAINTEXTKEYBLOB, algorithm, concat({littleEndian({0xFFFF}), counting(size)}));
    };
    import(blob(CALG_AES_128, 16));
    errorsAlone();
    import(blob(CALG_AES_256, 128));
    import(blob(CALG_AES_256, 129));
    import(blob(CALG_AES_192, 24));
    recorder.note("an expired sign-on is a failure like any other");
    token.willAnswer(Call::importAesKey, 49);
    import(blob(CALG_AES_128, 16));
}

TEST_F(KeyBlobsTranscript, WrappedKeyIsTriedWithEachAESKeyInTurn)
{
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes256).flag = 1;
    token.withAesKey(encryptionAes256);
    token.willAnswer(Call::decryptAes, 11);
    import(keyBlob(wrapBlob, CALG_AES_128, counting(28)));
    errorsAlone();
    import(keyBlob(wrapBlob, CALG_3DES, counting(5)));
}

TEST_F(KeyBlobsTranscript, WrappedKeyFailsByTheStepThatFailed)
{
    const Bytes blob = keyBlob(wrapBlob, CALG_AES_256, counting(28));
    token.withAesKey(encryptionTripleDes);
    import(blob);
    errorsAlone();
    token.withAesKey(encryptionAes128);
    token.willAnswer(Call::decryptAes, 11);
    import(blob);
    token.willAnswer(Call::importAesKey, 6);
    import(blob);
    for (const int reported : {-1, 129}) {
        token.unwrapped.reportedLength = reported;
        import(blob);
    }
    token.unwrapped.nullBuffer = true;
    token.unwrapped.reportedLength = 16;
    import(blob);
}

TEST_F(KeyBlobsTranscript, EncryptedKeyIsTriedTurnedAndThenAsItIs)
{
    const HCRYPTKEY with = userKey(AT_KEYEXCHANGE);
    token.plain.bytes = counting(24, 0x70);
    import(simpleBlob(CALG_3DES), with);
    token.willAnswer(Call::decrypt, 49);
    token.plain.bytes = counting(32, 0x70);
    import(simpleBlob(CALG_AES_256), with);
    errorsAlone();
    token.plain.bytes = counting(16, 0x70);
    import(simpleBlob(CALG_AES_128), with);
    token.willAnswer(Call::decrypt, 1);
    token.willAnswer(Call::decrypt, 2);
    import(simpleBlob(CALG_AES_128), with);
}

TEST_F(KeyBlobsTranscript, EncryptedKeyIsJudgedOnceItIsClear)
{
    import(simpleBlob(CALG_AES_192));
    const HCRYPTKEY with = userKey(AT_KEYEXCHANGE);
    import(simpleBlob(CALG_AES_192), with);
    errorsAlone();
    for (const std::size_t size : {0, 33}) {
        token.plain.bytes = Bytes(size);
        import(simpleBlob(CALG_AES_128), with);
    }
    token.plain.reportedLength = 129;
    import(simpleBlob(CALG_AES_128), with);
    token.plain.reportedLength = 16;
    token.plain.nullBuffer = true;
    import(simpleBlob(CALG_AES_128), with);
}

TEST_F(KeyBlobsTranscript, BlobsOfOtherTypesAndWithoutContentAreRefused)
{
    import(keyBlob(PRIVATEKEYBLOB, CALG_AES_128, Bytes(20)));
    import(keyBlob(12, CALG_AES_128, Bytes(20)));
    import(keyBlob(PRIVATEKEYBLOB, CALG_AES_128, Bytes(4)));
    csp.importKey(CspCalls::null, 0, CRYPT_EXPORTABLE);
    errorsAlone();
    import(keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(3)));
    for (const BYTE type : Bytes{0, 9, PUBLICKEYBLOBEX}) import(keyBlob(type, CALG_AES_128, Bytes(20)));
    csp.call("CPImportKey", "nowhere to put the key", [&] {
        const Bytes blob = keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20));
        return CPImportKey(csp.context, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, nullptr);
    });
    csp.call("CPImportKey", "2147483648 bytes", [&] {
        const Bytes blob = keyBlob(PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(20));
        HCRYPTKEY key = 0;
        return CPImportKey(csp.context, blob.data(), 0x80000000, 0, 0, &key);
    });
}

TEST_F(KeyBlobsTranscript, PublicKeyOfAKeyPairIsExported)
{
    const HCRYPTKEY key = userKey();
    for (const Place& place : {query(7), room(275), room(276)}) csp.exportKey(key, PUBLICKEYBLOB, place, 5);
    csp.exportKey(key, PUBLICKEYBLOB, nowhere());
    for (const DWORD type : {PRIVATEKEYBLOB, SIMPLEBLOB, PLAINTEXTKEYBLOB}) csp.exportKey(key, type, room(276));
}

TEST_F(KeyBlobsTranscript, OnlyKeysOf2048BitsThatTheTokenStillHasAreExported)
{
    const HCRYPTKEY key = userKey();
    token.keyPairs[0].algorithm = algorithmRsa3072;
    csp.exportKey(key, PUBLICKEYBLOB, query());
    errorsAlone();
    token.keyPairs[0].algorithm = algorithmRsa2048;
    token.keyPairs[0].keyId[15] ^= 1;
    csp.exportKey(key, PUBLICKEYBLOB, query());
    token.keyPairs.clear();
    csp.exportKey(key, PUBLICKEYBLOB, query());
}

TEST_F(KeyBlobsTranscript, AtLevelTwoErrorsAlone)
{
    errorsAlone();
    csp.importKey(CspCalls::null);
    csp.importKey(keyBlob(PUBLICKEYBLOB, CALG_RSA_KEYX, Bytes(4)));
    csp.importKey(publicBlob(1536));
    csp.importKey(keyBlob(wrapBlob, CALG_AES_128, Bytes(28)));
    csp.importKey(simpleBlob(CALG_AES_128));
    csp.importKey(keyBlob(PRIVATEKEYBLOB, CALG_RSA_KEYX, Bytes(20)));
    csp.importKey(keyBlob(12, CALG_RSA_KEYX, Bytes(20)));
    csp.exportKey(userKey(), PUBLICKEYBLOB, query());
}

} // namespace quelta::test
