#include "csp/csp_scenario.h"

#include "csp/context.h"

namespace quelta::test {

class CryptTranscript : public CspScenario {
protected:
    CryptTranscript() : pair(token.withKeyPair(usageKeyExchange, algorithmRsa2048))
    {
        pair.hardware = 1;
        open();
        key = userKey(AT_KEYEXCHANGE);
    }

    QueltaKeyPair& pair;
    HCRYPTKEY key = 0;
};

TEST_F(CryptTranscript, EncryptedDataIsTurned)
{
    cachePin();
    csp.encrypt(key, counting(20, 0x40), 256);
    token.cipher.bytes = counting(20);
    csp.encrypt(key, counting(3), 300, CRYPT_OAEP | 1);
}

TEST_F(CryptTranscript, EncryptionTypeGoesByTheBytesOfThePublicKeyAndItsFormByTheFirst)
{
    cachePin();
    errorsAlone();
    for (const std::size_t size : {512, 1024}) {
        setPublicKey(pair, counting(size));
        csp.encrypt(userKey(AT_KEYEXCHANGE), Bytes{1}, 256);
    }
    everyLine();
    setPublicKey(pair, Bytes{0x30, 1, 2});
    csp.encrypt(userKey(AT_KEYEXCHANGE), Bytes{1}, 256);
    pair.publicKeyLength = 0;
    csp.encrypt(userKey(AT_KEYEXCHANGE), Bytes{1}, 256);
}

TEST_F(CryptTranscript, SizesOfAnEncryptionAreLookedAtBeforeThePIN)
{
    DWORD length = 5;
    csp.call("CPEncrypt", "context1, key1, 5 bytes, no buffer",
             [&] { return CPEncrypt(csp.context, key, 0, TRUE, 0, nullptr, &length, 0); });
    recorder.note("the length is " + std::to_string(length));
    csp.encrypt(key, Bytes{1}, 255);
    csp.encrypt(key, {}, 256);
    csp.encrypt(key, counting(257), 256);
    csp.call("CPEncrypt", "context1, key1, 2147483648 bytes", [&] {
        BYTE byte = 0;
        length = 0x80000000;
        return CPEncrypt(csp.context, key, 0, TRUE, 0, &byte, &length, 0xFFFFFFFF);
    });
    user.cancels();
    csp.encrypt(key, Bytes{1}, 256);
}

TEST_F(CryptTranscript, EncryptionFailsWithTheTokenAndWithAResultThatCanNotBe)
{
    cachePin();
    token.willAnswer(Call::encrypt, 49);
    csp.encrypt(key, Bytes{1}, 256);
    errorsAlone();
    token.cipher.bytes = counting(300);
    csp.encrypt(key, Bytes{1}, 299);
    for (const int reported : {-1, 1025}) {
        token.cipher.reportedLength = reported;
        csp.encrypt(key, Bytes{1}, 2000);
    }
}

TEST_F(CryptTranscript, KeyPairDecryptsTurnedDataAndTheUserGivesThePIN)
{
    user.entersPin("1234");
    csp.decrypt(key, counting(256), 5);
}

TEST_F(CryptTranscript, SignOnHasExpiredWhileDecrypting)
{
    cachePin("old pin");
    token.willAnswer(Call::decrypt, 49);
    user.entersPin("1234");
    csp.decrypt(key, counting(256));
    errorsAlone();
    token.willAnswer(Call::decrypt, 49);
    user.cancels();
    csp.decrypt(key, counting(256));
    token.openSingleSignOn();
    token.willAnswer(Call::decrypt, 49);
    token.willAnswer(Call::decrypt, 49);
    csp.decrypt(key, counting(256));
}

TEST_F(CryptTranscript, DecryptionFailsWithTheTokenAndWithAResultThatCanNotBe)
{
    cachePin();
    csp.call("CPDecrypt", "context1, key1, no buffer", [&] {
        DWORD length = 8;
        return CPDecrypt(csp.context, key, 0, TRUE, 0, nullptr, &length);
    });
    csp.decrypt(key, {});
    token.willAnswer(Call::decrypt, 7);
    csp.decrypt(key, counting(256));
    errorsAlone();
    csp.call("CPDecrypt", "context1, key1, 2147483648 bytes", [&] {
        BYTE byte = 0;
        DWORD length = 0x80000000;
        return CPDecrypt(csp.context, key, 0, TRUE, 0, &byte, &length);
    });
    csp.call("CPDecrypt", "context1, key1, no length", [&] {
        BYTE byte = 0;
        return CPDecrypt(csp.context, key, 0, TRUE, 0, &byte, nullptr);
    });
    token.plain.evenIfRefused = true;
    token.willAnswer(Call::decrypt, 7);
    csp.decrypt(key, counting(256));
    for (const int reported : {-1, 257}) {
        token.plain.reportedLength = reported;
        csp.decrypt(key, counting(256));
    }
    token.plain.nullBuffer = true;
    token.plain.reportedLength = 8;
    csp.decrypt(key, counting(256));
}

TEST_F(CryptTranscript, SymmetricKeyDecryptsWithTheVectorThatIsSetAtTheTime)
{
    const HCRYPTKEY symmetric = sessionKey(CALG_AES_256, counting(32, 0x70));
    cachePin();
    csp.decrypt(symmetric, Bytes(32, 0xAA));
    csp.setKeyParam(symmetric, KP_IV, counting(16, 0x90));
    token.symmetricPlain.bytes = Bytes{1, 2, 3};
    csp.decrypt(symmetric, Bytes(32, 0xAA));
    errorsAlone();
    recorder.note("an expired sign-on means nothing to it, and the library's context stays behind");
    contextOf(csp.context)->libContext = this;
    token.willAnswer(Call::decryptSymetric, 49);
    csp.decrypt(symmetric, Bytes(32, 0xAA));
    token.symmetricPlain.reportedLength = 33;
    csp.decrypt(symmetric, Bytes(32, 0xAA));
}

TEST_F(CryptTranscript, RandomBytesAndTheHardwareSwitchTurnedRound)
{
    csp.genRandom(room(9));
    csp.setProvParam(PP_USE_HARDWARE_RNG, littleEndian({0}));
    csp.genRandom(room(9));
    errorsAlone();
    csp.genRandom(room(0));
    csp.genRandom(query(9));
    token.willAnswer(Call::generateRamdomNumber, -2);
    csp.genRandom(room(9));
}

TEST_F(CryptTranscript, AtLevelTwoErrorsAlone)
{
    cachePin();
    const HCRYPTKEY symmetric = sessionKey(CALG_AES_256, counting(32, 0x70));
    errorsAlone();
    csp.encrypt(key, Bytes{1}, 256);
    csp.decrypt(key, counting(256));
    csp.decrypt(symmetric, Bytes(16));
    csp.decrypt(key, {});
    csp.genRandom(room(9));
}

} // namespace quelta::test
