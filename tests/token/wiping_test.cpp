#include "support/heap.h"
#include "support/module_test.h"

#include "token/pin_prompt.h"

namespace quelta::test {

namespace {

// Without the first, in whose place an emptied text has its zero.
ByteView charactersOf(std::string_view text)
{
    return {reinterpret_cast<const unsigned char*>(text.data()) + 1, text.size() - 1};
}

} // namespace

// Secrets are gone when the memory that held them is freed.
class Wiping : public ModuleTest {
protected:
    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
};

// Within the string itself, and outside of it.
TEST_F(Wiping, PinGoesWithItsLastReader)
{
    for (const char* text : {"24681357", "a PIN with more characters than a string keeps inside itself"}) {
        auto held = std::make_shared<const PinText>(text);
        const FreedMemory freed(charactersOf(text));
        held.reset();
        EXPECT_GT(freed.blocks, 0);
        EXPECT_EQ(freed.withSecret, 0) << text;
    }
}

// In the middle of its own texts the library keeps it.
TEST_F(Wiping, TypedPinGoesWithThePrompt)
{
    token.pin = "24681357";
    user.entersPin(token.pin);
    const FreedMemory freed(charactersOf(token.pin));
    EXPECT_TRUE(ensurePin(device, {.alreadyValidated = "", .askingForPin = "", .clockMismatch = "", .cancelled = ""}));
    EXPECT_GT(freed.blocks, 0);
    EXPECT_EQ(freed.withSecretFirst, 0);
}

} // namespace quelta::test
