#include "support/freed_memory.h"
#include "support/module_test.h"

#include "csp/entry_points.h"
#include "ksp/function_table.h"
#include "token/pin_prompt.h"
#include "token/token.h"
#include "token/token_key.h"

#include <gmock/gmock.h>

#include <ncrypt.h>

#include <climits>

namespace quelta::test {

namespace {

ByteView bytesOf(std::string_view text)
{
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

constexpr PinTexts texts = {.alreadyValidated = "", .askingForPin = "", .clockMismatch = "", .cancelled = ""};

} // namespace

// Secrets are gone when the memory that held them is freed.
class Wiping : public ModuleTest {
protected:
    void expectGone(const FreedMemory& freed, std::source_location where = std::source_location::current())
    {
        const ::testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "freed");
        EXPECT_GT(freed.blocks(), 0);
        EXPECT_EQ(freed.withSecret(), 0);
    }

    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
    const PinText pin{"1234"};
    const Bytes secret = counting(32, 0x5A);
};

// Within the string itself, and outside of it.
TEST_F(Wiping, PinGoesWithItsLastReader)
{
    for (const std::string text : {"24681357", "a PIN with more characters than a string keeps inside itself"}) {
        auto held = std::make_shared<const PinText>(text);
        FreedMemory freed(bytesOf(text));
        held.reset();
        expectGone(freed);
    }
}

TEST_F(Wiping, TypedPinGoesWithThePrompt)
{
    token.pin = "24681357";
    user.entersPin(token.pin);
    FreedMemory freed(bytesOf(token.pin));
    EXPECT_TRUE(ensurePin(device, texts));
    EXPECT_GT(freed.blocks(), 0);
    EXPECT_EQ(freed.withSecretFirst(), 0);
}

TEST_F(Wiping, ClearKeyGoesWithItsRecord)
{
    auto key = std::make_unique<TokenKey>();
    key->symmetricKey->assign(secret);
    FreedMemory freed(secret);
    key.reset();
    expectGone(freed);
}

TEST_F(Wiping, BufferOfTheLibraryIsWipedAndReleasedOnce)
{
    const QueltaSymmetricKey key{};
    const Bytes input(32);
    for (Given* given : {&token.plain, &token.unwrapped}) given->bytes = secret;
    FreedMemory freed(secret);
    EXPECT_TRUE(device.decrypt(input, pin, input, false));
    EXPECT_TRUE(device.decryptUnchecked(input, pin, input, false));
    EXPECT_TRUE(device.decryptAes(key, input));
    EXPECT_EQ(freed.deviceBuffers(), 3);
    expectGone(freed);
}

// Nothing is believed of its length then.
TEST_F(Wiping, BufferThatComesWithARefusalOrALieIsReleasedOnce)
{
    const QueltaSymmetricKey key{};
    const Bytes input(32);
    FreedMemory freed(secret);
    for (Given* given : {&token.plain, &token.unwrapped}) given->evenIfRefused = true;
    token.willAnswer(Call::decrypt, 3);
    token.willAnswer(Call::decryptAes, 3);
    EXPECT_EQ(device.decrypt(input, pin, input, false).error(), 3);
    EXPECT_EQ(device.decryptAes(key, input).error(), 3);
    EXPECT_EQ(freed.deviceBuffers(), 2);
    for (const int reported : {INT_MIN, -1, 33, INT_MAX}) {
        token.plain.reportedLength = token.unwrapped.reportedLength = reported;
        EXPECT_FALSE(device.decrypt(input, pin, input, false));
        EXPECT_TRUE(device.decryptAes(key, input)) << "its caller looks at the length";
    }
    EXPECT_EQ(freed.deviceBuffers(), 10);
}

} // namespace quelta::test
