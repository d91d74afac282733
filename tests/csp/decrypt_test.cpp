#include "csp/csp_test.h"

#include "csp/context.h"

#include <climits>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const LogLine cached = debug("PIN already validated -- no need to ask again");

} // namespace

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
    expectLog({debug("CPDecrypt"), debug("CPDecrypt - dwFlags : 64"), debug("CPDecrypt - key id : " + keyName(pair)),
               debug("CPDecrypt - usage : 2"), cached, debug("Before reversing encrypted data"),
               debug("After reversing encrypted data"), debug("Before decrypting data"), debug("After decrypting data"),
               debug("CPDecrypt- return")});
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
    expectLine(debug("CPDecrypt: SSO expired, re-prompting for PIN"));
    token.willAnswer(Call::decrypt, 49);
    user.cancels();
    expectFailure(key, NTE_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(decryptCall("1234")));
    token.openSingleSignOn();
    token.willAnswer(Call::decrypt, 49);
    token.willAnswer(Call::decrypt, 49);
    expectFailure(key, NTE_PROVIDER_DLL_FAIL);
    EXPECT_THAT(token.takeDeeds(), ElementsAre(decryptCall(""), decryptCall("")));
    expectLine(error("Decrypt data failed : 49"));
}

TEST_F(Decrypt, MissingDataIsRefusedBeforeThePin)
{
    tokenState().pinCache.clear();
    EXPECT_EQ(decrypt(key, {}), (Handed{failedWith(NTE_BAD_DATA), 0, {}}));
    expectLine(error("Invalid data length for decrypt : 0"));
    DWORD length = 128;
    expectFails(NTE_BAD_DATA, [&] { return CPDecrypt(prov, key, 0, TRUE, 0, nullptr, &length); });
    expectLine(error("Invalid data length for decrypt : 128"));
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
        expectLine(error("Decrypt data failed : 0"));
        token.symmetricPlain.reportedLength = reported;
        token.symmetricPlain.bytes = Bytes();
        expectFailure(session, NTE_PROVIDER_DLL_FAIL);
        expectLine(error("Symetric decryption failed : 0"));
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
    log.forget();
    EXPECT_EQ(decrypt(session, Bytes(16, 0xAA)), (Handed{succeeded(), 5, concat({counting(5), Bytes(11, 0xAA)})}));
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("decryptSymetric(TOKEN-1, " + input + ", " + hexOf(iv) + ", " + hexOf(value) + ")"));
    expectLog({debug("CPDecrypt"), debug("CPDecrypt - dwFlags : 64"), debug("CPDecrypt - key id : " + std::string(32, '0')),
               debug("CPDecrypt - usage : 0"), cached, debug("CPDecrypt input iv : " + hexOf(iv)),
               debug("CPDecrypt input key : " + hexOf(value)), debug("CPDecrypt - decrypted data : 0102030405"),
               debug("CPDecrypt- return")});
}

class GenRandom : public CspTest {};

TEST_F(GenRandom, FlagIsTheHardwareSwitchTurnedRound)
{
    const HCRYPTPROV prov = acquire();
    for (const DWORD wanted : {1, 0, 7}) {
        CPSetProvParam(prov, PP_USE_HARDWARE_RNG, bytesOfDword(wanted).data(), 0);
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
