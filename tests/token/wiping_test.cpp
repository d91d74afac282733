#include "support/freed_memory.h"
#include "support/module_test.h"

#include "csp/entry_points.h"
#include "token/pin_prompt.h"
#include "token/token_key.h"

#include <climits>

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
    const PinText pin{"1234"};
    // Falls, as no public key of the library's does.
    const Bytes secret = reversed(counting(32, 0x5A));
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

TEST_F(Wiping, CryptoApiLeavesNeitherClearKeyNorPlainText)
{
    token.withKeyPair(usageKeyExchange, algorithmRsa2048);
    token.plain.bytes = token.symmetricPlain.bytes = secret;
    cachePin();
    const Bytes blob = keyBlob(SIMPLEBLOB, CALG_AES_256, Bytes(132));
    Bytes data(256);
    HCRYPTPROV prov = 0;
    HCRYPTKEY keyPair = 0;
    HCRYPTKEY clearKey = 0;
    const FreedMemory freed(secret);
    const auto expectGone = [&](const char* call, BOOL done) {
        EXPECT_TRUE(done) << call;
        EXPECT_EQ(freed.withSecret, 0) << call;
    };
    const auto decrypt = [&](const char* call, HCRYPTKEY key) {
        DWORD length = static_cast<DWORD>(data.size());
        expectGone(call, CPDecrypt(prov, key, 0, TRUE, 0, data.data(), &length));
        EXPECT_TRUE(sameBytes(ByteView(data).first(length), secret)) << call;
        data.assign(data.size(), 0);
    };
    BYTE table = 0;
    expectGone("acquire", CPAcquireContext(&prov, nullptr, 0, &table));
    expectGone("user key", CPGetUserKey(prov, AT_KEYEXCHANGE, &keyPair));
    expectGone("import", CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), keyPair, 0, &clearKey));
    decrypt("with the clear key", clearKey);
    decrypt("with the key pair", keyPair);
    expectGone("destroy clear key", CPDestroyKey(prov, clearKey));
    expectGone("destroy key pair", CPDestroyKey(prov, keyPair));
    expectGone("release", CPReleaseContext(prov, 0));
    EXPECT_EQ(freed.deviceBuffers, 2);
}

TEST_F(Wiping, BufferOfTheLibraryIsWipedAndReleasedOnce)
{
    token.plain.bytes = token.unwrapped.bytes = secret;
    const Bytes input(32);
    const FreedMemory freed(secret);
    EXPECT_TRUE(device.decrypt(input, pin, input, false));
    EXPECT_TRUE(device.decryptUnchecked(input, pin, input, false));
    EXPECT_TRUE(device.decryptAes({}, input));
    // Longer than what went in, which is believed as soon as its caller says so.
    if (auto longer = device.decryptAes({}, {})) longer->accept();
    EXPECT_EQ(freed.deviceBuffers, 4);
    EXPECT_EQ(freed.withSecret, 0);
}

// Nothing is believed of its length then.
TEST_F(Wiping, BufferThatComesWithARefusalOrALieIsReleasedOnce)
{
    const Bytes input(32);
    const FreedMemory freed(secret);
    token.plain.evenIfRefused = token.unwrapped.evenIfRefused = true;
    token.willAnswer(Call::decrypt, 3);
    token.willAnswer(Call::decryptAes, 3);
    EXPECT_EQ(device.decrypt(input, pin, input, false).error(), 3);
    EXPECT_EQ(device.decryptAes({}, input).error(), 3);
    EXPECT_EQ(freed.deviceBuffers, 2);
    for (const int reported : {INT_MIN, -1, 33, INT_MAX}) {
        token.plain.reportedLength = token.unwrapped.reportedLength = reported;
        EXPECT_FALSE(device.decrypt(input, pin, input, false));
        EXPECT_TRUE(device.decryptAes({}, input)) << "its caller looks at the length";
    }
    EXPECT_EQ(freed.deviceBuffers, 10);
}

} // namespace quelta::test
