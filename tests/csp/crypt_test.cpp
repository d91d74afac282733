#include "csp/csp_test.h"

#include "csp/context.h"
#include "encoding/rsa_public_key.h"

#include <climits>

namespace quelta::test {

class Encrypt : public CspTest {
protected:
    Encrypt() : pair(token.withKeyPair(usageKeyExchange, algorithmRsa2048)), prov(acquire()) { cachePin(); }

    // The first bytes of a buffer.
    Handed encrypt(const Bytes& buffer, DWORD inputLength, DWORD flags = 0)
    {
        const HCRYPTKEY key = userKey(prov, AT_KEYEXCHANGE);
        return handTo(buffer, [&](BYTE* data, DWORD* length) {
            const DWORD capacity = *length;
            *length = inputLength;
            return CPEncrypt(prov, key, 77, FALSE, flags, data, length, capacity);
        });
    }

    QueltaKeyPair& pair;
    HCRYPTPROV prov;
};

TEST_F(Encrypt, ResultIsTurnedIntoABufferThatJustHoldsIt)
{
    EXPECT_EQ(encrypt(counting(256, 0x40), 256), (Handed{succeeded(), 256, reversed(counting(256))}));
    const Bytes der = rsaPublicKeyToDer(hexOf(publicKeyOf(pair)), "010001");
    EXPECT_THAT(token.takeCalls(), ElementsAre("encrypt(8, 1, " + hexOf(counting(256, 0x40)) + ", " + hexOf(der) + ")"));
    token.cipher.bytes = counting(20);
    EXPECT_EQ(encrypt(room(300), 3), (Handed{succeeded(), 20, concat({reversed(counting(20)), room(280)})}));
}

TEST_F(Encrypt, PaddingComesFromTheFlagAndTheTypeFromTheBytesOfThePublicKey)
{
    struct Row {
        std::size_t publicKeySize;
        DWORD flags;
        const char* call;
    };
    for (const Row& row : {Row{256, CRYPT_OAEP, "encrypt(8, 4, "}, Row{256, ~DWORD{CRYPT_OAEP}, "encrypt(8, 1, "},
                           Row{512, 0, "encrypt(8, 1, "}, Row{1024, 0xFF, "encrypt(7, 4, "}}) {
        setPublicKey(pair, counting(row.publicKeySize));
        encrypt(room(256), 1, row.flags);
        EXPECT_THAT(token.takeCalls(), ElementsAre(::testing::StartsWith(row.call))) << row.publicKeySize << " " << row.flags;
    }
    setPublicKey(pair, Bytes{0x30, 1, 2});
    encrypt({7}, 1);
    EXPECT_THAT(token.takeCalls(), IsEmpty()) << "the buffer is too short";
    encrypt(room(256), 1);
    EXPECT_THAT(token.takeCalls(), ElementsAre("encrypt(8, 1, CD, 300102)"));
    for (const std::int32_t hostile : {0, -1, 1025, INT_MAX}) {
        pair.publicKeyLength = hostile;
        encrypt(room(256), 1);
        EXPECT_THAT(token.takeCalls(), ElementsAre("encrypt(8, 1, CD, null)")) << hostile;
    }
}

TEST_F(Encrypt, SizesAreLookedAtBeforeThePin)
{
    tokenState().pinCache.clear();
    const HCRYPTKEY key = userKey(prov, AT_KEYEXCHANGE);
    EXPECT_EQ(query(5, [&](auto data, auto length) { return CPEncrypt(prov, key, 0, TRUE, 0, data, length, 0); }),
              (Handed{succeeded(), 256, {}}));
    EXPECT_EQ(encrypt(room(255), 0), (Handed{failedWith(ERROR_MORE_DATA), 256, room(255)}));
    for (const DWORD bad : {0, 257}) {
        EXPECT_EQ(encrypt(room(256), bad), (Handed{failedWith(NTE_BAD_LEN), bad, room(256)}));
    }
    BYTE byte = 0;
    DWORD tooMuch = 0x80000000;
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPEncrypt(prov, key, 0, TRUE, 0, &byte, &tooMuch, 0xFFFFFFFF); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPEncrypt(0, 0, 0, TRUE, 0, &byte, nullptr, 256); });
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
    user.cancels();
    EXPECT_EQ(encrypt(room(256), 1), (Handed{failedWith(NTE_FAIL), 1, room(256)})) << "although only the public key is used";
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
}

TEST_F(Encrypt, ResultThatDoesNotFitIsToldAndNotWritten)
{
    token.cipher.bytes = counting(300);
    EXPECT_EQ(encrypt(room(299), 1), (Handed{failedWith(ERROR_MORE_DATA), 300, room(299)}));
    EXPECT_EQ(encrypt(room(300), 1).buffer, reversed(counting(300)));
    token.cipher.bytes = counting(1024);
    EXPECT_EQ(encrypt(room(1024), 1).buffer, reversed(counting(1024))) << "as much as the library is promised";
    for (const int reported : {-1, 1025, INT_MIN, INT_MAX}) {
        token.cipher.reportedLength = reported;
        EXPECT_EQ(encrypt(room(256), 1), (Handed{failedWith(NTE_PROVIDER_DLL_FAIL), 1, room(256)})) << reported;
    }
    token.takeCalls();
    token.willAnswer(Call::encrypt, 49);
    EXPECT_EQ(encrypt(room(256), 1), (Handed{failedWith(NTE_PROVIDER_DLL_FAIL), 1, room(256)}));
    EXPECT_EQ(token.takeDeeds().size(), 1U) << "an expired sign-on means nothing here";
    expectLine(error("Encrypt data failed: 49"));
}

class Decrypt : public CspTest {
protected:
    Decrypt() : pair(token.withKeyPair(usageKeyExchange, algorithmRsa1024)), prov(acquire())
    {
        key = userKey(prov, AT_KEYEXCHANGE);
        cachePin();
    }
    Handed decrypt(HCRYPTKEY with, const Bytes& input)
    {
        return handTo(input, [&](auto data, auto length) { return CPDecrypt(prov, with, 77, FALSE, 64, data, length); });
    }
    void expectFailure(HCRYPTKEY with, auto code) { EXPECT_EQ(decrypt(with, cipher), (Handed{failedWith(code), 128, cipher})); }
    std::string decryptCall(const std::string& pin, const char* hardware = "false") const
    {
        return "decrypt(TOKEN-1, " + keyName(pair) + ", " + pin + ", " + hexOf(reversed(cipher)) + ", " + hardware + ")";
    }

    QueltaKeyPair& pair;
    HCRYPTPROV prov;
    HCRYPTKEY key = 0;
    const Bytes cipher = counting(128);
};

TEST_F(Decrypt, CipherIsTurnedAndThePlainTextIsNot)
{
    token.plain.bytes = counting(10, 0x80);
    const Bytes rest(cipher.begin() + 10, cipher.end());
    EXPECT_EQ(decrypt(key, cipher), (Handed{succeeded(), 10, concat({counting(10, 0x80), rest})}));
    EXPECT_THAT(token.takeCalls(), ElementsAre(decryptCall("1234")));
    pair.hardware = 1;
    token.plain.bytes = counting(128, 0x80);
    EXPECT_EQ(decrypt(userKey(prov, AT_KEYEXCHANGE), cipher).buffer, counting(128, 0x80)) << "as long as the cipher";
    EXPECT_THAT(token.takeCalls(), ElementsAre(decryptCall("1234", "true")));
}

TEST_F(Decrypt, ExpiredSignOnIsRenewedOnce)
{
    cachePin("old pin");
    token.willAnswer(Call::decrypt, 49);
    user.entersPin("1234");
    EXPECT_EQ(decrypt(key, cipher).answer, succeeded());
    EXPECT_THAT(token.takeDeeds(),
                ElementsAre(decryptCall("old pin"), "validatePassword(TOKEN-1, 1234, 1, 0)", decryptCall("1234")));
    token.willAnswer(Call::decrypt, 49);
    user.cancels();
    expectFailure(key, NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(decryptCall("1234")));
    token.openSingleSignOn();
    token.willAnswer(Call::decrypt, 49);
    token.willAnswer(Call::decrypt, 49);
    expectFailure(key, NTE_PROVIDER_DLL_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(decryptCall(""), decryptCall("")));
}

TEST_F(Decrypt, MissingDataIsRefusedBeforeThePin)
{
    tokenState().pinCache.clear();
    EXPECT_EQ(decrypt(key, {}), (Handed{failedWith(NTE_BAD_DATA), 0, {}}));
    DWORD length = 128;
    expectFails(NTE_BAD_DATA, [&] { return CPDecrypt(prov, key, 0, TRUE, 0, nullptr, &length); });
    BYTE byte = 0;
    length = 0x80000000;
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPDecrypt(prov, key, 0, TRUE, 0, &byte, &length); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPDecrypt(prov, key, 0, TRUE, 0, &byte, nullptr); });
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    user.cancels();
    expectFailure(key, NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), IsEmpty());
}

TEST_F(Decrypt, ImpossibleResultsAreFailuresAndCopyNothing)
{
    const HCRYPTKEY session = sessionKey(prov, CALG_AES_128, Bytes(16, 1));
    for (const int reported : {-1, 129, INT_MIN, INT_MAX}) {
        token.plain.reportedLength = reported;
        expectFailure(key, NTE_PROVIDER_DLL_FAIL);
        token.symmetricPlain.reportedLength = reported;
        token.symmetricPlain.bytes = Bytes();
        expectFailure(session, NTE_PROVIDER_DLL_FAIL);
    }
    token.plain = {};
    token.plain.nullBuffer = true;
    expectFailure(key, NTE_PROVIDER_DLL_FAIL);
    token.takeCalls();
    token.willAnswer(Call::decryptSymetric, 49);
    expectFailure(session, NTE_PROVIDER_DLL_FAIL);
    EXPECT_EQ(token.takeDeeds().size(), 1U) << "an expired sign-on means nothing to a symmetric key";
}

TEST_F(Decrypt, SymmetricKeyWorksOnTheSharedVectorWithoutContext)
{
    const Bytes value = counting(32, 0x70), iv = counting(16, 0x20);
    const HCRYPTKEY session = sessionKey(prov, CALG_AES_256, value);
    token.symmetricPlain.bytes = counting(5);
    contextOf(prov)->libContext = this; // must not be passed on
    const std::string input = hexOf(Bytes(16, 0xAA));
    decrypt(session, Bytes(16, 0xAA));
    EXPECT_THAT(token.takeCalls(), ElementsAre("decryptSymetric(TOKEN-1, " + input + ", null, " + hexOf(value) + ")"));
    expectSucceeds([&] { return CPSetKeyParam(prov, session, KP_IV, iv.data(), 0); });
    EXPECT_EQ(decrypt(session, Bytes(16, 0xAA)), (Handed{succeeded(), 5, concat({counting(5), Bytes(11, 0xAA)})}));
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("decryptSymetric(TOKEN-1, " + input + ", " + hexOf(iv) + ", " + hexOf(value) + ")"));
}

class GenRandom : public CspTest {};

TEST_F(GenRandom, FlagIsTheHardwareSwitchTurnedRound)
{
    const HCRYPTPROV prov = acquire();
    for (const DWORD wanted : {1, 0, 7}) {
        CPSetProvParam(prov, PP_USE_HARDWARE_RNG, littleEndian({wanted}).data(), 0);
        EXPECT_EQ(handTo(room(9), [&](auto data, auto length) { return CPGenRandom(prov, *length, data); }).buffer, counting(9));
        EXPECT_THAT(token.takeCalls(),
                    ElementsAre("generateRamdomNumber(TOKEN-1, 9, " + std::string(wanted ? "false" : "true") + ")"));
    }
    BYTE byte = 0;
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPGenRandom(prov, 0, &byte); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPGenRandom(prov, 1, nullptr); });
    expectFails(ERROR_INVALID_PARAMETER, [&] { return CPGenRandom(prov, 0x80000000, &byte); });
    EXPECT_THAT(token.takeCalls(), IsEmpty());
    token.willAnswer(Call::generateRamdomNumber, -2);
    expectFails(NTE_PROVIDER_DLL_FAIL, [&] { return CPGenRandom(prov, 1, &byte); });
    expectLine(error("Random number generation failed: -2"));
}

} // namespace quelta::test
