#include "support/module_test.h"

#include "token/token.h"
#include "token/token_connection.h"

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

TEST_F(TokenCalls, HashDataGoesInPiecesThatTheLibraryCanCount)
{
    device.updateHash(nullptr, {});
    EXPECT_THAT(token.takeCalls(), ElementsAre("updateHash(0, null)"));

    // Of 2 GB only what comes last is there to be read.
    struct Release {
        void operator()(void* pages) const { VirtualFree(pages, 0, MEM_RELEASE); }
    };
    constexpr std::size_t size = std::size_t{0x7FFFFFFF} + 3;
    const std::unique_ptr<void, Release> pages(VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS));
    auto* const data = static_cast<unsigned char*>(pages.get());
    ASSERT_TRUE(data && VirtualAlloc(data + 0x7FFFF000, 0x1000 + 2, MEM_COMMIT, PAGE_READWRITE));
    std::ranges::copy(counting(3), data + 0x7FFFFFFF);
    device.updateHash(nullptr, {data, size});
    EXPECT_THAT(token.takeCalls(), ElementsAre("updateHash(0, 2147483647 bytes)", "updateHash(0, 010203)"));

    token.willAnswer(Call::updateHash, 7);
    EXPECT_EQ(device.updateHash(nullptr, {data, size}), 7);
    EXPECT_EQ(token.takeCalls().size(), 1U) << "what fails is not gone on with";
}

TEST_F(TokenCalls, LibraryContextGoesWhereverThereIsRoomForIt)
{
    int context = 0;
    constexpr OpeningTexts texts = {.startingLibrary = "", .noToken = "", .openFailed = ""};
    EXPECT_EQ(openFirstToken(&context, texts), id);
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false, with a context)",
                                               "initDevice(TOKEN-1, false, with a context)"));
}

TEST_F(TokenCalls, SingleSignOnNeedsASerialNumberAndBothFlags)
{
    struct Row {
        const char* serialNumber;
        std::int32_t enabled;
        std::int32_t open;
        bool signedOn;
    };
    for (const Row& row : {Row{"SN-1", 1, 1, true}, Row{"", 1, 1, false}, Row{"SN-1", 0, 1, false}, Row{"SN-1", 1, 0, false},
                           Row{"SN-1", 2, 1, false}, Row{"SN-1", 1, -1, false}}) {
        token.info.serialNumber = row.serialNumber;
        token.info.singleSignOnEnabled = row.enabled;
        token.info.singleSignOnOpen = row.open;
        EXPECT_EQ(device.singleSignOnOpen(), row.signedOn) << row.serialNumber << row.enabled << row.open;
    }
}

} // namespace quelta::test
