#include "support/module_test.h"

#include "token/key_unwrap.h"
#include "token/token.h"

#include <gmock/gmock.h>

namespace quelta::test {

using ::testing::_;
using ::testing::Each;
using ::testing::ElementsAre;

class TokenCalls : public ModuleTest {
protected:
    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
};

TEST_F(TokenCalls, ListsAreCopiedBeforeTheNextCallSpoilsThem)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    const auto pairs = device.keyPairs();
    device.keyPairs();
    ASSERT_EQ(pairs.size(), 1U);
    EXPECT_EQ(pairs[0].usage, usageSigning);
}

TEST_F(TokenCalls, KeyReferenceOutOfItsFieldIsEmptyAndTheLongestKeyIsImportedWholeAndWipedFromItsRecord)
{
    token.withAesKey(encryptionAes256).keyReferenceLength = 129;
    token.unwrapped.bytes = counting(128);
    const auto unwrapped = UnwrapWithAnyKek(device, {});
    ASSERT_TRUE(unwrapped);
    const auto stored =
        importSymmetricKey(device, PinText("1234"), unwrapped->key.upTo(importedKeyRoom).value(), encryptionAes128);
    EXPECT_THAT(token.takeCalls(), ElementsAre(_, "decryptAes(TOKEN-1, empty, null, false, null)",
                                               "importAesKey(TOKEN-1, 1234, " + toHex(counting(128)) + ", 8)"));
    ASSERT_TRUE(stored);
    EXPECT_THAT(stored->keyValue, Each(0));
}

TEST_F(TokenCalls, SingleSignOnNeedsASerialNumberAndBothFlags)
{
    const struct {
        const char* serialNumber;
        std::int32_t enabled;
        std::int32_t open;
        bool signedOn;
    } rows[] = {{"SN-1", 1, 1, true},  {"", 1, 1, false},     {"SN-1", 0, 1, false},
                {"SN-1", 1, 0, false}, {"SN-1", 2, 1, false}, {"SN-1", 1, -1, false}};
    for (const auto& row : rows) {
        token.info.serialNumber = row.serialNumber;
        token.info.singleSignOnEnabled = row.enabled;
        token.info.singleSignOnOpen = row.open;
        EXPECT_EQ(device.singleSignOnOpen(), row.signedOn) << row.serialNumber << row.enabled << row.open;
    }
}

TEST(DeviceBuffer, GivesNothingForALengthOutOfBounds)
{
    struct Row {
        int reported;
        std::size_t most;
        std::optional<std::size_t> size;
    };
    constexpr std::size_t block = 16;
    constexpr Row rows[] = {
        {0, 0, 0},
        {16, 16, 16},
        {16, 99, 16},
        {-1, 99, std::nullopt},
        {16, 15, std::nullopt},
        {17, 99, std::nullopt},
        {INT_MAX, INT_MAX, std::nullopt},
    };
    for (const Row& row : rows) {
        DeviceBuffer buffer;
        *buffer.place() = static_cast<unsigned char*>(std::malloc(block));
        *buffer.lengthPlace() = row.reported;
        const auto bytes = buffer.upTo(row.most);
        EXPECT_EQ(bytes.transform([](ByteView view) { return view.size(); }), row.size) << row.reported << " of " << row.most;
    }
    DeviceBuffer none;
    *none.lengthPlace() = 1;
    EXPECT_FALSE(none.upTo(99));
}

} // namespace quelta::test
