#include "csp/csp_test.h"

#include "encoding/rsa_public_key.h"

#include <climits>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

} // namespace

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
    expectLog({debug("CPEncrypt"), debug("PIN already validated -- no need to ask again"),
               debug("CSP: Public key is raw modulus, converting to DER"), debug("CPEncrypt - return success")});
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
        expectLine(debug("CSP: Public key is already DER encoded"));
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
        expectLog({debug("CPEncrypt"), error("Invalid data length for encrypt: " + std::to_string(bad))});
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
        expectLine(error("Encrypt data failed: 0"));
    }
    token.takeCalls();
    token.willAnswer(Call::encrypt, 49);
    EXPECT_EQ(encrypt(room(256), 1), (Handed{failedWith(NTE_PROVIDER_DLL_FAIL), 1, room(256)}));
    EXPECT_EQ(token.takeDeeds().size(), 1U) << "an expired sign-on means nothing here";
    expectLine(error("Encrypt data failed: 49"));
}

} // namespace quelta::test
