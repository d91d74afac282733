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

// Calls from deep in the stack, so that later calls do not overwrite what this one leaves there.
std::optional<Pin> askedDeepInTheStack(const Token& device)
{
    [[maybe_unused]] volatile char above[8192]{};
    return ensurePin(device, {.alreadyValidated = "", .askingForPin = "", .clockMismatch = "", .cancelled = ""});
}

} // namespace

// Secrets are gone when the memory that held them is freed.
class Wiping : public ModuleTest {
protected:
    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device{id, nullptr};
};

// The user types into the system's control, whose memory is the system's. This test searches the module's: the blocks that its
// code made on the heap, and the thread's stack, both as bytes. The fake library keeps the PIN in the middle of its own texts.
TEST_F(Wiping, TypedPinIsHeldOnceWhileItIsKeptAndNowhereBeforeAndAfter)
{
    token.pin = "a PIN with more characters than a string keeps inside itself";
    const ByteView secret = charactersOf(token.pin);
    user.entersPin(token.pin + "7");
    user.acknowledges();
    user.entersPin(token.pin);
    const auto* const thread = reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
    // A part, since what comes after it overwrites other parts.
    const ByteView part = secret.subspan(secret.size() - 16, 12);
    const auto stackHoldsIt = [=] {
        const ByteView stack(static_cast<const unsigned char*>(thread->StackLimit),
                             static_cast<const unsigned char*>(thread->StackBase));
        return !std::ranges::search(stack, part).empty();
    };
    const FreedMemory memory(secret);
    user.onWindow([&](const std::string& window) {
        if (!window.starts_with("message")) return;
        EXPECT_EQ(memory.heldFirst(), 0) << "it was refused";
        EXPECT_FALSE(stackHoldsIt());
    });
    auto pin = askedDeepInTheStack(device);
    EXPECT_FALSE(stackHoldsIt());
    EXPECT_TRUE(pin);
    pin.reset();
    EXPECT_EQ(memory.heldFirst(), 1);
    tokenState().pinCache.clear();
    EXPECT_EQ(memory.heldFirst(), 0);
    EXPECT_EQ(memory.withSecretFirst, 0);
}

} // namespace quelta::test
