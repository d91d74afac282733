#include "csp/csp_scenario.h"

#include "csp/context.h"

namespace quelta::test {

class CryptTranscript : public CspScenario {
protected:
    CryptTranscript()
    {
        pair.hardware = 1;
        open();
        cachePin();
        key = userKey(AT_KEYEXCHANGE);
    }

    QueltaKeyPair& pair = token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    HCRYPTKEY key = 0;
};

TRANSCRIPT(CryptTranscript, "the cipher is reversed, and the number of public key bytes decides the type")
{
    csp.encrypt(key, counting(20, 0x40));
    setPublicKey(pair, Bytes{0x30, 1, 2});
    csp.encrypt(userKey(AT_KEYEXCHANGE), Bytes{1});
    errorsAlone();
    token.cipher.bytes = counting(20);
    csp.encrypt(key, counting(3), 300, CRYPT_OAEP | 1);
    for (const std::size_t size : {0, 1024}) {
        setPublicKey(pair, Bytes(size, 0x77));
        csp.encrypt(userKey(AT_KEYEXCHANGE), Bytes{1});
    }
}

TRANSCRIPT(CryptTranscript, "wrong sizes are refused before the PIN is asked for")
{
    errorsAlone();
    csp.encrypt(key, Bytes{1}, 255);
    for (const std::size_t size : {0, 257}) csp.encrypt(key, Bytes(size));
    csp.decrypt(key, {});
    tokenState().pinCache.clear();
    user.cancels();
    csp.encrypt(key, Bytes{1});
}

TRANSCRIPT(CryptTranscript, "a key pair decrypts reversed data, and the user gives the PIN")
{
    tokenState().pinCache.clear();
    user.entersPin("1234");
    csp.decrypt(key, counting(256), 5);
    token.willAnswer(Call::decrypt, 49);
    token.plain.evenIfRefused = true;
    user.entersPin("1234");
    csp.decrypt(key);
    errorsAlone();
    pair.hardware = 0;
    csp.decrypt(userKey(AT_KEYEXCHANGE));
    for (int i = 0; i < 3; ++i) token.willAnswer(Call::decrypt, 49);
    user.cancels();
    csp.decrypt(key);
    token.openSingleSignOn();
    csp.decrypt(key);
}

TRANSCRIPT(CryptTranscript, "a symmetric key decrypts with the vector that is set at the time")
{
    const HCRYPTKEY symmetric = sessionKey(CALG_AES_256, counting(32, 0x70));
    csp.decrypt(symmetric, Bytes(32, 0xAA));
    errorsAlone();
    csp("CPSetKeyParam", {symmetric, KP_IV, counting(16, 0x90)});
    token.symmetricPlain.bytes = Bytes{1, 2, 3};
    csp.decrypt(symmetric, Bytes(32, 0xAA));
    recorder.note("the library's context stays behind");
    contextOf(csp.context)->libContext = this;
    csp.decrypt(symmetric, Bytes(32, 0xAA));
}

TRANSCRIPT(CryptTranscript, "random bytes, with the hardware switch on and off")
{
    csp("CPGenRandom", {room(9)});
    errorsAlone();
    csp("CPSetProvParam", {PP_USE_HARDWARE_RNG, littleEndian({0})});
    csp("CPGenRandom", {room(9)});
}

} // namespace quelta::test
