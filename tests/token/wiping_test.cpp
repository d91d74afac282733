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

using Wiping = ModuleTest;

// The user types into a control of the system, which keeps the text in the system's memory. This test searches the module's
// memory: the blocks that its code frees, and the thread's stack. The fake library's own texts hold the PIN, but never at their
// begin.
TEST_F(Wiping, TypedPinIsGoneFromTheStackAndFromFreedBlocks)
{
    const std::string id = FakeDeviceLibrary::deviceId;
    const Token device(id, nullptr);
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
    user.onWindow(
        [&](const std::string& window) { EXPECT_TRUE(!window.starts_with("message") || !stackHoldsIt()) << "it was refused"; });
    auto pin = askedDeepInTheStack(device);
    EXPECT_FALSE(stackHoldsIt());
    EXPECT_TRUE(pin);
    pin.reset();
    tokenState().pinCache.clear();
    EXPECT_EQ(memory.withSecretFirst, 0);
}

} // namespace quelta::test
