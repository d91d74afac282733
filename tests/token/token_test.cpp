#include "support/module_test.h"

#include "token/token.h"

#include <gmock/gmock.h>

#include <climits>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;

// For a room of this size: what the library may report, and whether it is believed.
struct Report {
    int length;
    bool believed;
};

std::vector<Report> reportsFor(int room)
{
    return {{0, true}, {room, true}, {room + 1, false}, {-1, false}, {INT_MIN, false}, {INT_MAX, false}};
}

} // namespace

class TokenCalls : public ModuleTest {
protected:
    // Lets the library lie about a length in every way; `call` gives its outcome.
    template <class Call>
    static void expectOnlyPlausibleLengths(Given& given, int room, Call call)
    {
        for (const Report& report : reportsFor(room)) {
            given.reportedLength = report.length;
            const auto outcome = call();
            ASSERT_EQ(outcome.has_value(), report.believed) << report.length;
            if (!outcome) {
                EXPECT_EQ(outcome.error(), 0) << "no result of the library's: it reported success";
            }
        }
    }

    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
    const PinText pin{"1234"};
    const Bytes keyId = Bytes(16, 0x11);
    const Bytes input = counting(64);
};

TEST_F(TokenCalls, LengthsThatCanNotBeAreFailures)
{
    std::array<unsigned char, 128> digest{};
    std::array<unsigned char, encryptionRoom> cipher{};
    Bytes room(64);
    expectOnlyPlausibleLengths(token.signature, 64, [&] { return device.signHash(keyId, pin, input, room); });
    expectOnlyPlausibleLengths(token.digest, 20, [&] { return device.finalHash(nullptr, digest, 20); });
    expectOnlyPlausibleLengths(token.plain, 64, [&] { return device.decrypt(keyId, pin, input, true); });
    expectOnlyPlausibleLengths(token.symmetricPlain, 64, [&] { return device.decryptSymmetric(input, room, {}, keyId); });
    expectOnlyPlausibleLengths(token.cipher, 1024,
                               [&] { return device.encrypt(EncryptionType{}, paddingPkcs1, input, cipher, keyId); });
}

TEST_F(TokenCalls, SuccessWithoutABufferIsAFailure)
{
    token.plain.nullBuffer = true;
    const auto outcome = device.decrypt(keyId, pin, input, false);
    ASSERT_FALSE(outcome.has_value());
    EXPECT_EQ(outcome.error(), 0);
}

TEST_F(TokenCalls, ResultsComeBackAsTheyAre)
{
    token.willAnswer(Call::signHash, 49);
    token.willAnswer(Call::decrypt, -3);
    Bytes room(64);
    EXPECT_EQ(device.signHash(keyId, pin, input, room), std::unexpected(49));
    EXPECT_EQ(device.decrypt(keyId, pin, input, false).error(), -3);
}

TEST_F(TokenCalls, ListsAreCopiedBeforeTheNextCallSpoilsThem)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    const auto pairs = device.keyPairs();
    device.keyPairs();
    ASSERT_EQ(pairs.size(), 1U);
    EXPECT_EQ(pairs[0].usage, usageSigning);
}

TEST_F(TokenCalls, HashDataOfNoBytesIsOneCall)
{
    device.updateHash(nullptr, {});
    EXPECT_THAT(token.takeCalls(), ElementsAre("updateHash(0, null)"));
}

} // namespace quelta::test
