#include "support/heap.h"
#include "support/module_test.h"

#include "token/key_unwrap.h"
#include "token/pin_prompt.h"

#include <gmock/gmock.h>

namespace quelta::test {

class TokenCalls : public ModuleTest {
protected:
    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
};

TEST_F(TokenCalls, ImportedKeyIsWipedFromItsRecord)
{
    const auto stored = importSymmetricKey(device, PinText("1234"), counting(16), encryptionAes128);
    ASSERT_TRUE(stored);
    EXPECT_THAT(stored->keyValue, ::testing::Each(0));
}

// The fake library's own texts hold the PIN too, but never at the beginning of a block.
TEST_F(TokenCalls, TypedPinIsWipedBeforeTheMessageAndInEachFreedBlock)
{
    token.pin = "a PIN with more characters than a string keeps inside itself";
    user.entersPin(token.pin + "7");
    user.acknowledges();
    user.entersPin(token.pin);
    std::string refusedPin = "there was no message";
    user.onWindow([&](const std::string& window) { refusedPin = window[0] == 'm' ? token.checkedPin : refusedPin; });
    const Bytes secret = toBytes(token.pin.substr(1));
    const FreedMemory memory(secret);
    EXPECT_TRUE(ensurePin(device, {.alreadyValidated = "", .askingForPin = "", .clockMismatch = "", .cancelled = ""}));
    tokenState().pinCache.clear();
    EXPECT_EQ(memory.withSecretFirst, 0);
    EXPECT_EQ(refusedPin, "") << "while a message is shown";
}

TEST_F(TokenCalls, SingleSignOnNeedsASerialNumberAndBothFlags)
{
    const auto signedOn = [&](const char* serialNumber, std::int32_t enabled, std::int32_t open) {
        token.info.serialNumber = serialNumber;
        token.info.singleSignOnEnabled = enabled;
        token.info.singleSignOnOpen = open;
        return device.singleSignOnOpen();
    };
    EXPECT_TRUE(signedOn("SN-1", 1, 1));
    EXPECT_FALSE(signedOn("", 1, 1));
    for (const auto& [enabled, open] : {std::pair(0, 1), {1, 0}, {2, 1}, {1, -1}})
        EXPECT_FALSE(signedOn("SN-1", enabled, open)) << enabled << open;
}

TEST(DeviceBuffer, LengthAboveTheHeapBlockGivesNothing)
{
    DeviceBuffer buffer;
    *buffer.place() = static_cast<unsigned char*>(std::malloc(16));
    for (const auto& [reported, isGiven] : {std::pair(16, true), {17, false}}) {
        *buffer.lengthPlace() = reported;
        EXPECT_EQ(buffer.upTo(99).has_value(), isGiven) << reported;
    }
}

} // namespace quelta::test
