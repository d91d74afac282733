#include "support/module_test.h"

#include "token/key_unwrap.h"
#include "token/token.h"
#include "token/token_connection.h"

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

TEST_F(TokenCalls, PassTheirArgumentsAndTheLibraryContextWhereverThereIsRoomForIt)
{
    int context = 0;
    const Token withContext{id, &context};
    EXPECT_EQ(openFirstToken(&context, {.startingLibrary = "", .noToken = "", .openFailed = ""}), id);
    EXPECT_THAT(token.takeCalls(), ElementsAre("init(0, 2)", "getConnectedDeviceList(false, with a context)",
                                               "initDevice(TOKEN-1, false, with a context)"));

    const PinText pin("1234");
    const Bytes keyId(keyIdSize, 0x22), one{1}, two{2, 2}, three{3, 3, 3};
    const std::string idText = toHex(keyId), noId = toHex(Bytes(keyIdSize));
    QueltaKeyPair pair{};
    QueltaCertificate certificate{};
    QueltaSymmetricKey aesKey{};
    aesKey.flag = 1;
    setReference(aesKey, one);
    Bytes out(encryptionRoom);
    void* hash = nullptr;
    int remaining = 0;
    withContext.singleSignOnOpen();
    withContext.validatePassword("1234", remaining);
    withContext.keyPairs();
    withContext.certificates();
    withContext.aesKeys();
    withContext.generateKeyPair(pin, pair);
    withContext.deleteKeyPair(keyId, pin, true);
    withContext.importCertificate(pin, certificate);
    withContext.importAesKey(pin, aesKey);
    withContext.decryptAes(aesKey, two);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("getTokenInfo(TOKEN-1, with a context)", "validatePassword(TOKEN-1, 1234, 1, 0, with a context)",
                            "getKeyPairList(TOKEN-1, with a context)", "getCertificateList(TOKEN-1, with a context)",
                            "getAesKeyList(TOKEN-1, with a context)",
                            "generateKeyPair(TOKEN-1, 1234, 0, 0, " + noId + ", \"\", with a context)",
                            "deleteKeyPair(TOKEN-1, " + idText + ", 1234, true, with a context)",
                            "importCertificate(TOKEN-1, 1234, " + noId + ", empty, empty, \"\", with a context)",
                            "importAesKey(TOKEN-1, 1234, empty, 0, with a context)",
                            "decryptAes(TOKEN-1, 01, 0202, true, null, with a context)"));
    withContext.signHash(keyId, pin, one, std::span(out).first(4));
    withContext.verifySignatureHash(algorithmRsa4096, one, two, three);
    withContext.decrypt(keyId, pin, one, true);
    withContext.encrypt(EncryptionType{9}, paddingOaep, one, std::span<unsigned char, encryptionRoom>(out), two);
    withContext.decryptSymmetric(one, out, two, three);
    withContext.initHash(7, hash);
    withContext.updateHash(hash, one);
    withContext.finalHash(hash, std::span<unsigned char, digestRoom>(out.data(), digestRoom), 5);
    withContext.random(std::span(out).first(6), true);
    publicKeyOfCertificate(one);
    EXPECT_THAT(token.takeCalls(),
                ElementsAre("signHash(TOKEN-1, " + idText + ", 1234, 01, room 4, false, with a context)",
                            "verifySignatureHash(4, TOKEN-1, 01, 0202, 030303)",
                            "decrypt(TOKEN-1, " + idText + ", 1234, 01, true, with a context)",
                            "encrypt(9, 4, 01, 0202, with a context)",
                            "decryptSymetric(TOKEN-1, 01, 0202, 030303, with a context)", "initHash(TOKEN-1, 7, with a context)",
                            "updateHash(1, 01, with a context)", "finalHash(1, room 5, with a context)",
                            "generateRamdomNumber(TOKEN-1, 6, true, with a context)", "getCertificateDetails(01)"));
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
