#include "support/module_test.h"

#include "encoding/key_unwrap.h"

#include <gmock/gmock.h>

#include <climits>

namespace quelta::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

} // namespace

class KeyUnwrap : public ModuleTest {
protected:
    std::expected<UnwrappedKey, UnwrapFailure> unwrap(ByteView input)
    {
        const auto sizeCode = [](std::size_t size) { return size == 16 ? encryptionAes128 : encryptionAes256; };
        return UnwrapWithAnyKek(Token(id, nullptr), input, PinText("1234"), sizeCode, "unwrapped with ");
    }

    const std::string id = FakeDeviceLibrary::deviceId;
    const Bytes wrapped = {0xAB, 0xCD};
    const std::string clearKey = "0102030405060708090A0B0C0D0E0F10";
};

TEST_F(KeyUnwrap, FirstFittingAesKeyOfTheListIsTaken)
{
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(9);
    token.withAesKey(encryptionAes256);
    token.withAesKey(encryptionAes128).flag = 1;
    token.withAesKey(encryptionAes128);
    token.willAnswer(Call::decryptAes, 5);
    token.onImportAesKey = [](QueltaSymmetricKey& stored) { stored.usage = 7; };

    const auto key = unwrap(wrapped);
    ASSERT_TRUE(key.has_value());
    EXPECT_THAT(token.takeDeeds(),
                ElementsAre("decryptAes(TOKEN-1, C003, ABCD, false, null)", "decryptAes(TOKEN-1, C004, ABCD, true, null)",
                            "importAesKey(TOKEN-1, 1234, " + clearKey + ", 8)"));
    EXPECT_THAT(key->keyEncryptionKeyId, ::testing::Each(0xE4));
    EXPECT_EQ(key->stored.usage, 7U) << "the record as the token filled it";
    EXPECT_THAT(key->stored.keyValue, ::testing::Each(0)) << "the clear key is gone";
}

TEST_F(KeyUnwrap, WithoutAFittingKeyNothingIsImported)
{
    EXPECT_EQ(unwrap(wrapped).error(), UnwrapFailure::noKeyFits);
    token.withAesKey(encryptionTripleDes);
    EXPECT_EQ(unwrap(wrapped).error(), UnwrapFailure::noKeyFits);
    EXPECT_THAT(token.takeDeeds(), IsEmpty()) << "no AES key, no attempt";

    token.withAesKey(encryptionAes128);
    token.willAnswer(Call::decryptAes, 1);
    EXPECT_EQ(unwrap(wrapped).error(), UnwrapFailure::noKeyFits);
    EXPECT_THAT(token.takeDeeds(), ElementsAre("decryptAes(TOKEN-1, C002, ABCD, false, null)"));
}

TEST_F(KeyUnwrap, SuccessEndsTheSearchWhateverItGave)
{
    struct Row {
        const char* what;
        Given given;
        UnwrapFailure failure;
    };
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes128);
    for (const Row& row : {Row{"no buffer", {{}, 16, true}, UnwrapFailure::noKeyRecovered},
                           Row{"negative", {{}, -1}, UnwrapFailure::noKeyRecovered},
                           Row{"most negative", {{}, INT_MIN}, UnwrapFailure::noKeyRecovered},
                           Row{"too long", {counting(129), {}}, UnwrapFailure::keyTooLong},
                           Row{"absurd", {{}, INT_MAX}, UnwrapFailure::keyTooLong}}) {
        SCOPED_TRACE(row.what);
        token.unwrapped = row.given;
        const auto key = unwrap(wrapped);
        ASSERT_FALSE(key.has_value());
        EXPECT_EQ(key.error(), row.failure);
        EXPECT_THAT(token.takeDeeds(), ElementsAre("decryptAes(TOKEN-1, C001, ABCD, false, null)"));
    }
}

TEST_F(KeyUnwrap, RefusedImportIsToldApart)
{
    token.withAesKey(encryptionAes256);
    token.unwrapped.bytes = counting(128);
    token.willAnswer(Call::importAesKey, 3);
    EXPECT_EQ(unwrap(wrapped).error(), UnwrapFailure::importRefused);
    EXPECT_TRUE(unwrap(wrapped).has_value()) << "128 bytes fill the field";
}

TEST_F(KeyUnwrap, NoBytesAndLyingReferencesReachTheTokenAsNothing)
{
    token.withAesKey(encryptionAes128).keyReferenceLength = 129;
    unwrap({});
    EXPECT_THAT(token.takeDeeds(),
                ElementsAre("decryptAes(TOKEN-1, empty, null, false, null)", "importAesKey(TOKEN-1, 1234, " + clearKey + ", 8)"));
}

} // namespace quelta::test
